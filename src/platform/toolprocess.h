#pragma once

#include <memory>
#include <QObject>
#include <QString>
#include <QStringList>

namespace klangor {

// An external tool started without a window and watched until it ends. One object runs one
// tool once; the programming run makes a new one for every run.
class ToolProcess : public QObject
{
    Q_OBJECT

public:
    enum class StartError
    {
        None,
        NotFound,    // no such file in the working folder
        NotStartable // the file is there, but the system cannot run it
    };

    // What a terminated tool ends with, whatever the platform reports for a killed process.
    static constexpr int TerminatedExitCode = 1;
    // Besides 0, the exit code with which the programming tools report a good run.
    static constexpr int DoneExitCode = 258;

    using QObject::QObject;

    // Starts program, a bare file name looked up in workingFolder, with arguments; the tool
    // runs hidden, in workingFolder. false when it cannot be started (see startError()).
    // A start that the system refuses only later is reported by startFailed().
    virtual bool start(const QString &program, const QStringList &arguments,
                       const QString &workingFolder) = 0;
    virtual StartError startError() const = 0;
    virtual bool isRunning() const = 0;
    // Ends a running tool at once; it then finishes with TerminatedExitCode. Does nothing when
    // no tool runs.
    virtual void terminate() = 0;

signals:
    // The tool's exit code; of a Windows tool run through wine, the code it most likely had.
    void finished(int exitCode);
    void startFailed();
};

// The tool process of this machine.
std::unique_ptr<ToolProcess> createSystemToolProcess();

} // namespace klangor
