// klangor-launch.exe: runs a Windows programming tool under wine and hands on its whole exit
// code. wine itself ends with only the low byte of it, so a tool's 258 (a good run) and 2 (a
// failure) would look the same.
//
//   klangor-launch.exe TOOL.exe ARGUMENTS...
//
// TOOL.exe is started from the current folder, hidden, with the null device for its standard
// handles; the launcher waits for it and writes one line to its standard output:
// "klangor-launch exit-code N" (N the unsigned 32-bit code) or "klangor-launch start-failed E"
// (E the Windows error). Built with Debian's MinGW cross compiler.

#include <cstdio>
#include <string>
#include <windows.h>

namespace {

// One argument as the C runtime of the started program splits it again.
std::wstring quoted(const std::wstring &argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring out = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes before a quote are doubled, and the quote escaped.
        out.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        out.push_back(c);
    }
    out.append(backslashes * 2, L'\\'); // before the closing quote
    return out + L"\"";
}

} // namespace

int wmain(int argc, wchar_t **argv)
{
    if (argc < 2) {
        std::fputs("klangor-launch: TOOL.exe ARGUMENTS...\n", stderr);
        return 2;
    }
    std::wstring commandLine;
    for (int i = 1; i < argc; ++i)
        commandLine += (i > 1 ? L" " : L"") + quoted(argv[i]);

    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE null =
        CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    &inheritable, OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW | STARTF_USESTDHANDLES;
    startup.wShowWindow = SW_HIDE;
    startup.hStdInput = startup.hStdOutput = startup.hStdError = null;
    PROCESS_INFORMATION process{};
    // The tool by its name in the current folder only, never one found along the search path.
    if (!CreateProcessW(argv[1], commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &process)) {
        std::printf("klangor-launch start-failed %lu\n", GetLastError());
        return 3;
    }
    CloseHandle(process.hThread);
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    if (!GetExitCodeProcess(process.hProcess, &code)) {
        std::printf("klangor-launch start-failed %lu\n", GetLastError());
        return 3;
    }
    std::printf("klangor-launch exit-code %lu\n", code);
    std::fflush(stdout);
    return 0;
}
