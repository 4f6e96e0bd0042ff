// Stand-in for the decoder programming tools, for development and tests without a decoder.
// Built twice: as sndburn.exe (port, soundlist.dat, cvlist.dat) and as cvburn.exe (port,
// cvlist.dat); natively, and as Windows programs with the MinGW cross compiler, run by wine.
// Standard C++ but for the serial port and the crash of the Windows build. It checks its command
// line and the files it is given as the real tool would need them, notes what it saw in
// "standin.log" in its working folder, takes its time and exits. The Windows build also opens
// COMn, as the real tool does, and writes the bytes of the files it was given to it.
//
// Controlled through the environment:
//   KLANGOR_STANDIN_SECONDS  how long to "program" (default 3, fractions allowed)
//   KLANGOR_STANDIN_UNTIL    a file path: "programs" until that file exists instead
//   KLANGOR_STANDIN_EXIT     exit code after a good run (default 0; 0..255, on Windows
//                            up to 999999999, so that 258 can be given)
//   KLANGOR_STANDIN_CRASH    when "1", crashes after the wait: aborts, on Windows with an
//                            access violation (0xC0000005)
//
// Exit codes of its own: 2 bad command line, 3 bad soundlist.dat, 4 a listed WAV file
// missing or not RIFF/WAVE, 5 bad cvlist.dat, 6 bad control variable, 7 the port cannot be
// opened or written.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#ifdef _WIN32
#include <windows.h>
#endif

namespace {

#ifdef _WIN32
constexpr long MaxExitCode = 999999999;
#else
constexpr long MaxExitCode = 255; // all a Linux exit status holds
#endif

enum ExitCode
{
    BadCommandLine = 2,
    BadSoundList = 3,
    BadWaveFile = 4,
    BadCvList = 5,
    BadControl = 6,
    BadPort = 7,
};

class Log
{
public:
    Log() : m_out("standin.log", std::ios::binary | std::ios::trunc) {}
    void line(const std::string &text)
    {
        m_out << text << '\n';
        m_out.flush(); // a killed tool leaves what it had written
    }

private:
    std::ofstream m_out;
};

std::optional<std::string> readFile(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    if (!in)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool isDecimal(const std::string &text)
{
    return !text.empty() && text.size() <= 9 &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

// "0", "12": no sign, no leading zero.
bool isPlainNumber(const std::string &text)
{
    return isDecimal(text) && (text.size() == 1 || text[0] != '0');
}

bool isRiffWave(const std::string &name)
{
    const auto bytes = readFile(name);
    return bytes && bytes->size() >= 12 && bytes->compare(0, 4, "RIFF") == 0 &&
           bytes->compare(8, 4, "WAVE") == 0;
}

// Splits at CR LF; every line, the last one too, must end so.
std::optional<std::vector<std::string>> crlfLines(const std::string &text)
{
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find("\r\n", begin);
        if (end == std::string::npos)
            return std::nullopt;
        const std::string line = text.substr(begin, end - begin);
        if (line.find_first_of("\r\n") != std::string::npos)
            return std::nullopt;
        lines.push_back(line);
        begin = end + 2;
    }
    return lines;
}

// Returns 0 or the exit code of the fault; notes the assigned sound numbers.
int checkSoundList(Log &log)
{
    const auto text = readFile("soundlist.dat");
    if (!text) {
        log.line("soundlist=missing");
        return BadSoundList;
    }
    auto lines = crlfLines(*text);
    if (!lines) {
        log.line("soundlist=bad line ends");
        return BadSoundList;
    }
    bool big = false;
    if (!lines->empty() && lines->front() == "**16MBit") {
        big = true;
        lines->erase(lines->begin());
    }
    if (lines->size() != 88) {
        log.line("soundlist=bad line count " + std::to_string(lines->size()));
        return BadSoundList;
    }
    std::string assigned;
    for (int n = 0; n < 88; ++n) {
        const std::string &line = (*lines)[static_cast<std::size_t>(n)];
        const std::string number = std::to_string(n);
        const std::string prefix = (n < 10 ? "0" : "") + number + ": ";
        if (line.compare(0, prefix.size(), prefix) != 0) {
            log.line("soundlist=bad line " + line);
            return BadSoundList;
        }
        const std::string entry = line.substr(prefix.size());
        if (entry == "---")
            continue;
        if (entry != number + ".wav") {
            log.line("soundlist=bad line " + line);
            return BadSoundList;
        }
        if (!isRiffWave(entry)) {
            log.line("soundlist=bad wave " + entry);
            return BadWaveFile;
        }
        assigned += (assigned.empty() ? "" : ",") + number;
    }
    log.line(std::string("soundlist=ok ") + (big ? "16MBit" : "2MBit") + " assigned=" + assigned);
    return 0;
}

// "; comment", empty lines and "CV=value" lines with CV 1..1024 and value 0..255.
int checkCvList(Log &log)
{
    const auto text = readFile("cvlist.dat");
    if (!text) {
        log.line("cvlist=missing");
        return BadCvList;
    }
    std::istringstream in(*text);
    std::string line;
    int entries = 0;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == ';')
            continue;
        const std::size_t eq = line.find('=');
        const std::string cv = line.substr(0, eq);
        const std::string value = eq == std::string::npos ? std::string() : line.substr(eq + 1);
        if (!isPlainNumber(cv) || !isPlainNumber(value) || std::stol(cv) < 1 ||
            std::stol(cv) > 1024 || std::stol(value) > 255) {
            log.line("cvlist=bad line " + line);
            return BadCvList;
        }
        ++entries;
    }
    if (entries == 0) {
        log.line("cvlist=empty");
        return BadCvList;
    }
    log.line("cvlist=ok entries=" + std::to_string(entries));
    return 0;
}

std::optional<double> seconds()
{
    const char *value = std::getenv("KLANGOR_STANDIN_SECONDS");
    if (!value)
        return 3.0;
    try {
        std::size_t used = 0;
        const double s = std::stod(value, &used);
        if (used != std::string(value).size() || !(s >= 0.0 && s <= 3600.0))
            return std::nullopt;
        return s;
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

std::optional<int> chosenExitCode()
{
    const char *value = std::getenv("KLANGOR_STANDIN_EXIT");
    if (!value)
        return 0;
    const std::string text(value);
    if (!isPlainNumber(text) || std::stol(text) > MaxExitCode)
        return std::nullopt;
    return static_cast<int>(std::stol(text));
}

// Writes the files to COM<port> as they are, one after the other.
bool writePort(Log &log, const std::string &port, const std::vector<std::string> &files)
{
#ifdef _WIN32
    const std::string device = "\\\\.\\COM" + port;
    HANDLE handle = CreateFileA(device.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        log.line("port=cannot open COM" + port + " error=" + std::to_string(GetLastError()));
        return false;
    }
    std::size_t total = 0;
    for (const std::string &name : files) {
        const std::string bytes = readFile(name).value_or(std::string());
        DWORD written = 0;
        if (!WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
            written != bytes.size()) {
            CloseHandle(handle);
            log.line("port=cannot write COM" + port);
            return false;
        }
        total += written;
    }
    CloseHandle(handle);
    log.line("port=COM" + port + " wrote=" + std::to_string(total));
#else
    static_cast<void>(files);     // the native build has no port to reach
    log.line("port=COM" + port);
#endif
    return true;
}

[[noreturn]] void crashNow()
{
#ifdef _WIN32
    RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
#endif
    std::abort();
}

int finish(Log &log, int code)
{
    log.line("exit=" + std::to_string(code));
    return code;
}

} // namespace

int main(int argc, char **argv)
{
    Log log;
    const std::string self = KLANGOR_STANDIN_NAME;
    const std::vector<std::string> args(argv + 1, argv + argc);
    std::string commandLine = self;
    for (const std::string &arg : args)
        commandLine += " " + arg;
    log.line("argv=" + commandLine);
    log.line("cwd=" + std::filesystem::current_path().string());

    const bool soundTool = self == "sndburn.exe";
    const std::vector<std::string> files =
        soundTool ? std::vector<std::string>{"soundlist.dat", "cvlist.dat"}
                  : std::vector<std::string>{"cvlist.dat"};
    const bool portOk =
        !args.empty() && args[0].size() == 1 && args[0][0] >= '1' && args[0][0] <= '4';
    if (!portOk || args.size() != files.size() + 1 ||
        !std::equal(files.begin(), files.end(), args.begin() + 1))
        return finish(log, BadCommandLine);

    const auto wait = seconds();
    const auto code = chosenExitCode();
    if (!wait || !code)
        return finish(log, BadControl);

    if (soundTool) {
        if (const int fault = checkSoundList(log))
            return finish(log, fault);
    }
    if (const int fault = checkCvList(log))
        return finish(log, fault);

    if (!writePort(log, args[0], files))
        return finish(log, BadPort);
    if (const char *until = std::getenv("KLANGOR_STANDIN_UNTIL")) {
        // A test that is gone with its folder leaves no tool behind.
        const std::filesystem::path release(until);
        while (!std::filesystem::exists(release) && std::filesystem::exists(release.parent_path()))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    } else {
        std::this_thread::sleep_for(std::chrono::duration<double>(*wait));
    }
    const char *crash = std::getenv("KLANGOR_STANDIN_CRASH");
    if (crash && std::string(crash) == "1") {
        log.line("crash");
        crashNow();
    }
    return finish(log, *code);
}
