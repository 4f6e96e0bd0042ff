#include "clitesthelpers.h"

#include <gtest/gtest.h>
#include <QBuffer>

namespace klangor {
namespace {

using test::runCommand;

CommandArguments g_seen;

int recordCall(const CommandArguments &arguments, Console &console)
{
    g_seen = arguments;
    console.out << "lief\n";
    return 7;
}

const QList<CommandLineCommand> kTable = {
    {.name = "demo run",
     .arguments = "EIN...",
     .summary = "läuft",
     .description = "Läuft mit EIN.",
     .options = {{"--fein", {}, "fein"}, {"-o", "ORDNER", "wohin"}},
     .minArguments = 1,
     .maxArguments = 2,
     .run = &recordCall},
    {.name = "check", .arguments = "DATEI...", .summary = "prüft", .run = &recordCall},
};

// Usage errors go to stderr alone with exit code 2; help and results to stdout alone.
TEST(CommandLineTest, DispatchOptionsAndUsageErrors)
{
    struct Case
    {
        QStringList arguments;
        int exitCode;
        QString out = {}; // contained in stdout; stderr is empty unless the exit code is 2
        QString err = {}; // contained in stderr; stdout is empty when the exit code is 2
        QStringList positional = {};
        QHash<QString, QString> options = {};
    };
    const QList<Case> cases = {
        {{"demo", "run", "a"}, 7, "lief\n", {}, {"a"}},
        {{"demo", "run", "--fein", "-o", "x", "a", "b"},
         7,
         "lief",
         {},
         {"a", "b"},
         {{"--fein", ""}, {"-o", "x"}}},
        {{"demo", "run", "--", "-o", "-"}, 7, "lief", {}, {"-o", "-"}},
        {{"demo", "run", "a", "-h"}, 0, "Aufruf: klangor demo run [OPTIONEN] EIN...\n\nLäuft"},
        {{"demo", "--help"}, 0, "  demo run EIN...  läuft\n"},
        {{"--help"}, 0, "  check DATEI...   prüft\n"},
        {{"--version"}, 0, "Klangor " + programVersion() + "\n"},
        {{"demo", "run", "-o"}, 2, {}, "Der Option „-o“ fehlt der Wert ORDNER."},
        {{"demo", "run", "-o", "", "a"}, 2, {}, "Der Option „-o“ fehlt der Wert ORDNER."},
        {{"demo", "run", "--fein=1", "a"}, 2, {}, "Die Option „--fein“ hat keinen Wert."},
        {{"demo", "run", "--bunt", "a"}, 2, {}, "Unbekannte Option „--bunt“ für „demo run“."},
        {{"demo", "run"}, 2, {}, "Zu wenige Argumente für „demo run“: erwartet wird EIN..."},
        {{"demo", "run", "a", "b", "c"}, 2, {}, "Zu viele Argumente für „demo run“"},
        {{"demo"}, 2, {}, "Dem Befehl „demo“ fehlt ein Unterbefehl.\n„klangor demo --help“"},
        {{"demo", "geh"}, 2, {}, "Unbekannter Befehl „demo geh“."},
        {{"fahr\n"}, 2, {}, "Unbekannter Befehl „fahr\\n“.\n„klangor --help“ zeigt"},
        {{"-x"}, 2, {}, "Unbekannte Option „-x“."},
        {{}, 2, {}, "Es fehlt ein Befehl."},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.arguments.join(' ').toStdString());
        g_seen = {};
        const test::CommandRun run = runCommand(c.arguments, kTable);
        EXPECT_EQ(run.exitCode, c.exitCode);
        EXPECT_TRUE(run.out.contains(c.out)) << run.out.toStdString();
        EXPECT_TRUE(run.err.contains(c.err)) << run.err.toStdString();
        EXPECT_TRUE(c.exitCode == 2 ? run.out.isEmpty() : run.err.isEmpty());
        EXPECT_EQ(g_seen.positional, c.positional);
        EXPECT_EQ(g_seen.options, c.options);
    }
}

TEST(CommandLineTest, OutputFieldsCannotBreakTheLine)
{
    EXPECT_EQ(outputField(QStringLiteral("ä\\b\tc\r\nd\x01\u202e.wav")),
              QStringLiteral("ä\\\\b\\tc\\x0d\\nd\\x01\\x202e.wav"));
}

TEST(CommandLineTest, TerminalKeepsTheLayoutAndEscapesEveryOtherControlCharacter)
{
    QBuffer target;
    target.open(QIODevice::WriteOnly);
    TerminalDevice terminal(target);
    terminal.write("a\tb\n\x1b[2J\\\xc2"); // U+009B, the one-byte CSI, split between writes
    terminal.write("\x9b\xc3\xa4\n");
    EXPECT_EQ(target.data(), "a\tb\n\\x1b[2J\\\\x9b\xc3\xa4\n");
}

} // namespace
} // namespace klangor
