#include "cli/commands.h"
#include "soundset/soundconversion.h"

#include <QDir>
#include <QFileInfo>

namespace klangor {

int runConvert(const CommandArguments &arguments, Console &console)
{
    const QString folder = arguments.value(QStringLiteral("-o"));
    const ConversionOptions options{.eightBit = arguments.has(QStringLiteral("--8bit")),
                                    .trim = arguments.has(QStringLiteral("--trim")),
                                    .normalize = arguments.has(QStringLiteral("--normalize")),
                                    .overwrite = arguments.has(QStringLiteral("--overwrite"))};
    bool existed = false;
    for (const QString &input : arguments.positional)
        existed = existed || QFileInfo::exists(QDir(folder).filePath(convertedFileName(input)));
    const QList<Result<ConvertedSound>> results =
        convertAllForDecoder(arguments.positional, folder, options);
    int exitCode = ExitSuccess;
    for (qsizetype i = 0; i < results.size(); ++i) {
        const Result<ConvertedSound> &result = results.at(i);
        console.out << outputField(arguments.positional.at(i)) << '\t'
                    << outputField(result ? result.value().path : result.error().text) << '\n';
        if (!result)
            exitCode = ExitFailure;
        // What the conversion changed on its own goes beside the results, never lost.
        for (const QString &note : result ? result.value().notes : QStringList())
            console.err << "klangor: " << outputField(note) << '\n';
    }
    if (exitCode != ExitSuccess && existed && !options.overwrite)
        console.err << "klangor: Vorhandene Dateien ersetzt convert nur mit „--overwrite“.\n";
    return exitCode;
}

} // namespace klangor
