#pragma once

#include <memory>
#include <QObject>
#include <QString>
#include <QStringList>

namespace klangor {

// Where a tool runs besides its folder: what a Windows tool needs to run through wine, and
// where the serial adapters are found.
struct ToolSetup
{
    QString winePrefix; // the program's own wine prefix; a user's ~/.wine is never touched
    QString launcher;   // klangor-launch.exe: hands on a Windows tool's whole exit code
    QString deviceRoot = QStringLiteral("/dev");
};

// The serial port a tool is told to use: "Com<number>", leading to the adapter chosen by its
// by-id name, or with none chosen to the only one there is.
struct ToolPort
{
    int number = 1;
    QString device;
};

// An external tool started without a window and watched until it ends. One object runs one
// tool once; the programming run makes a new one for every run.
class ToolProcess : public QObject
{
    Q_OBJECT

public:
    enum class StartError
    {
        None,
        NotFound,       // no such file in the working folder
        NotStartable,   // the file is there, but the system cannot run it
        PortUnavailable // the serial port cannot be reached; startMessage() tells why
    };

    // What a terminated tool ends with, whatever the platform reports for a killed process.
    static constexpr int TerminatedExitCode = 1;
    // Besides 0, the exit code with which the programming tools report a good run.
    static constexpr int DoneExitCode = 258;

    using QObject::QObject;

    // Starts program, a bare file name looked up in workingFolder, with arguments; the tool
    // runs hidden, in workingFolder, on port. false when it cannot be started (see
    // startError()). A start that the system refuses only later is reported by startFailed().
    virtual bool start(const QString &program, const QStringList &arguments,
                       const QString &workingFolder, const ToolPort &port) = 0;
    virtual StartError startError() const = 0;
    // For PortUnavailable: what is wrong and what the user can do, in German.
    virtual QString startMessage() const = 0;
    virtual bool isRunning() const = 0;
    // Ends a running tool at once, with every process it started; it then finishes with
    // TerminatedExitCode. Does nothing when no tool runs.
    virtual void terminate() = 0;

signals:
    // The tool's exit code; of a Windows tool, its whole 32-bit code (a crash's 0xC0000005
    // arrives as a negative number).
    void finished(int exitCode);
    void startFailed();
};

// The tool process of this machine.
std::unique_ptr<ToolProcess> createSystemToolProcess(const ToolSetup &setup);

} // namespace klangor
