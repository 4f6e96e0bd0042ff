#include "cli/commands.h"
#include "soundset/soundconversion.h"

namespace klangor {

int runConvert(const CommandArguments &arguments, Console &console)
{
    const ConversionOptions options{arguments.has(QStringLiteral("--8bit")),
                                    arguments.has(QStringLiteral("--trim")),
                                    arguments.has(QStringLiteral("--normalize"))};
    const QList<Result<ConvertedSound>> results =
        convertAllForDecoder(arguments.positional, arguments.value(QStringLiteral("-o")), options);
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
    return exitCode;
}

} // namespace klangor
