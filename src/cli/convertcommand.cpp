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
                                    .overwrite = arguments.has(QStringLiteral("--overwrite"))};
    bool existed = false;
    for (const QString &input : arguments.positional)
        existed = existed || QFileInfo::exists(QDir(folder).filePath(convertedFileName(input)));
    const QList<Result<QString>> results =
        convertAllForDecoder(arguments.positional, folder, options);
    int exitCode = ExitSuccess;
    for (qsizetype i = 0; i < results.size(); ++i) {
        const Result<QString> &result = results.at(i);
        console.out << outputField(arguments.positional.at(i)) << '\t'
                    << outputField(result ? result.value() : result.error().text) << '\n';
        if (!result)
            exitCode = ExitFailure;
    }
    if (exitCode != ExitSuccess && existed && !options.overwrite)
        console.err << "klangor: Vorhandene Dateien ersetzt convert nur mit „--overwrite“.\n";
    return exitCode;
}

} // namespace klangor
