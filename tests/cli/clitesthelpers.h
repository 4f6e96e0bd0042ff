#pragma once

#include "cli/commandline.h"

#include <QStringList>

namespace klangor::test {

struct CommandRun
{
    int exitCode = -1;
    QString out;
    QString err;
};

inline CommandRun runCommand(const QStringList &arguments,
                             const QList<CommandLineCommand> &table = commandLineCommands())
{
    CommandRun run;
    QTextStream out(&run.out), err(&run.err);
    Console console{out, err};
    run.exitCode = runCommandLine(table, arguments, console);
    out.flush();
    err.flush();
    return run;
}

} // namespace klangor::test
