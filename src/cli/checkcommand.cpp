#include "cli/commands.h"
#include "platform/waveaudiodevice.h"
#include "soundset/wavecheck.h"

#include <QFileInfo>

namespace klangor {

int runCheck(const CommandArguments &arguments, Console &console)
{
    // The same device measures the length as in the window.
    RiffWaveAudioDevice device;
    WaveChecker checker(device);
    int exitCode = ExitSuccess;
    for (const QString &path : arguments.positional) {
        // The window's check calls every unreadable file a wrong format; here the user typed
        // the name and is told when it names nothing.
        const Status checked = QFileInfo::exists(path)
                                   ? checker.CheckWaveFile(path)
                                   : Status(QStringLiteral("Die Datei existiert nicht."));
        console.out << outputField(path) << '\t'
                    << (checked ? QStringLiteral("OK") : checked.error().text) << '\n';
        if (!checked)
            exitCode = ExitFailure;
    }
    return exitCode;
}

} // namespace klangor
