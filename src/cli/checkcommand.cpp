#include "cli/commands.h"
#include "platform/waveaudiodevice.h"
#include "soundset/wavecheck.h"

namespace klangor {

int runCheck(const CommandArguments &arguments, Console &console)
{
    // The same device measures the length as in the window.
    RiffWaveAudioDevice device;
    WaveChecker checker(device);
    int exitCode = ExitSuccess;
    for (const QString &path : arguments.positional) {
        const Status checked = checker.CheckWaveFile(path);
        console.out << outputField(path) << '\t'
                    << (checked ? QStringLiteral("OK") : checked.error().text) << '\n';
        if (!checked)
            exitCode = ExitFailure;
    }
    return exitCode;
}

} // namespace klangor
