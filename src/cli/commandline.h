#pragma once

#include "common/version.h"

#include <optional>
#include <QHash>
#include <QIODevice>
#include <QList>
#include <QString>
#include <QStringDecoder>
#include <QStringList>
#include <QTextStream>

namespace klangor {

inline constexpr int ExitSuccess = 0;
inline constexpr int ExitFailure = 1; // a file failed its check or could not be handled
inline constexpr int ExitUsage = 2;   // the call itself is wrong

// Where a command writes: its results to out, every message to err.
struct Console
{
    QTextStream &out;
    QTextStream &err;
};

struct CommandOption
{
    QString name;      // "--8bit", "-o"
    QString valueName; // "ORDNER"; empty for an option without value
    QString help;      // one German line
    bool required = false;
};

// The call of a command once its options are known to be its own.
struct CommandArguments
{
    QStringList positional;
    QHash<QString, QString> options; // given options with their values ("" for switches)

    bool has(const QString &option) const { return options.contains(option); }
    QString value(const QString &option) const { return options.value(option); }
};

// One entry of the command table: what the help shows and the function that runs it. The
// arguments are counted and the options checked before run is called.
struct CommandLineCommand
{
    QString name = {};        // the words that call it: "check", "project show"
    QString arguments = {};   // as the help spells them: "DATEI..."
    QString summary = {};     // one line in the overview
    QString description = {}; // the command's own help
    QList<CommandOption> options = {};
    int minArguments = 0;
    int maxArguments = -1; // -1: any number
    int (*run)(const CommandArguments &arguments, Console &console) = nullptr;
};

// The program's commands.
const QList<CommandLineCommand> &commandLineCommands();

// Runs a command line (without the program name) with these commands and returns the exit
// code.
int runCommandLine(const QList<CommandLineCommand> &commands, const QStringList &arguments,
                   Console &console);
// The same for main's arguments, on standard output and error, in UTF-8. Creates no
// QGuiApplication, so no display is needed.
int runCommandLine(int argc, char *argv[]);

// Whether a call of the program (its arguments without the program name) means the window:
// nothing, Qt's own options (a session manager's -session), at most one sound project
// ("FILE.spj") to open. The project to open ("" for none), or nullopt for a command line.
std::optional<QString> windowProject(const QStringList &arguments);

// A text made safe for one field of one output line: tabs, line breaks and other control
// characters are written as \t, \n, \xHH, a backslash as \\.
QString outputField(const QString &text);
// A text for a terminal whose tabs and line breaks are its layout: the other control
// characters (escape sequences above all) are written as \xHH.
QString terminalText(const QString &text);

// Writes UTF-8 text to target as terminalText has it: whatever a command prints, a name from a
// file cannot move the cursor, retitle the terminal or hide lines.
class TerminalDevice final : public QIODevice
{
public:
    explicit TerminalDevice(QIODevice &target);

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override;

private:
    QIODevice &m_target;
    QStringDecoder m_decoder{QStringDecoder::Utf8};
};

} // namespace klangor
