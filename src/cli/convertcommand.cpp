#include "cli/commands.h"
#include "soundset/soundconversion.h"

namespace klangor {

int runConvert(const CommandArguments &arguments, Console &console)
{
    const ConversionOptions options{arguments.has(QStringLiteral("--8bit")),
                                    arguments.has(QStringLiteral("--trim"))};
    const QList<Result<QString>> results =
        convertAllForDecoder(arguments.positional, arguments.value(QStringLiteral("-o")), options);
    int exitCode = ExitSuccess;
    for (qsizetype i = 0; i < results.size(); ++i) {
        const Result<QString> &result = results.at(i);
        console.out << outputField(arguments.positional.at(i)) << '\t'
                    << outputField(result ? result.value() : result.error().text) << '\n';
        if (!result)
            exitCode = ExitFailure;
    }
    return exitCode;
}

} // namespace klangor
