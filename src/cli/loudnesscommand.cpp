#include "cli/commands.h"
#include "soundset/soundconversion.h"

#include <cmath>

namespace klangor {

QString levelField(double db)
{
    return std::isfinite(db) ? QString::number(db, 'f', 1) : QStringLiteral("-inf");
}

int runLoudness(const CommandArguments &arguments, Console &console)
{
    int exitCode = ExitSuccess;
    for (const QString &input : arguments.positional) {
        const Result<SoundLevels> levels = measureSoundLevels(input);
        console.out << outputField(input) << '\t';
        if (!levels) {
            console.out << outputField(levels.error().text) << '\n';
            exitCode = ExitFailure;
            continue;
        }
        console.out << levelField(levels.value().loudnessLufs) << '\t'
                    << levelField(levels.value().peakDbfs) << '\n';
        if (levels.value().cutShort())
            console.err << "klangor: "
                        << outputField(QStringLiteral("„%1“ ist abgeschnitten oder beschädigt; "
                                                      "gemessen ist der lesbare Teil. %2")
                                           .arg(input, readablePartText(levels.value())))
                        << '\n';
    }
    return exitCode;
}

} // namespace klangor
