#pragma once

#include "platform/toolprocess.h"
#include "soundset/slotfilenames.h"

#include <functional>
#include <memory>
#include <QObject>
#include <QString>
#include <QStringList>

namespace klangor {

// One of the eight command lines of the programming tools, with the port it names.
struct ToolCommand
{
    QString program; // bare name, found in the program folder
    QStringList arguments;
    ToolPort port;
};

// "sndburn.exe N soundlist.dat cvlist.dat", or with Selectrix "cvburn.exe N cvlist.dat".
ToolCommand toolCommand(bool selectrix, int comPort);

// The programming run: writes the sound list, starts the tool, reports the tool's end and
// lets it be cancelled. Nothing here waits: start() returns at once and finished() tells the
// outcome. It holds what the window shows (status line, progress bar, timer) and announces
// every change, so the window only mirrors it.
class ProgrammingRun : public QObject
{
    Q_OBJECT

public:
    using ToolFactory = std::function<std::unique_ptr<ToolProcess>()>;
    // Asked once the tool is about to start, so it sees the options as they are then.
    using CommandChooser = std::function<ToolCommand()>;

    enum class Outcome
    {
        Done,           // exit code 0 or 258
        Failed,         // any other exit code, a crash included
        Cancelled,      // "Abbrechen" during the run
        NotFound,       // the tool is not in the program folder
        NotStartable,   // the tool is there but could not be started
        PortUnavailable // the serial port cannot be reached; message() tells why
    };
    Q_ENUM(Outcome)

    ProgrammingRun(QString programFolder, ToolFactory makeTool, QObject *parent = nullptr);
    // A tool that still runs is let go: it finishes its work without this program.
    ~ProgrammingRun() override;

    // Starts a run: writes the sound list and returns; the tool starts from the event loop.
    // Every accepted run ends with one finished(). false, and nothing else, while a run is going.
    bool start(const SlotFileNames &names, int memoryMBit, const CommandChooser &chooseCommand);
    bool isRunning() const { return m_running; }
    // "Abbrechen": ends the tool of a run that is going, with every process it started, and
    // the run with it.
    void cancel();
    // One step of the progress bar; wraps to 0 at the maximum.
    void tick();

    // What the user should do after PortUnavailable, in German.
    const QString &message() const { return m_message; }
    // Every text the run can put on the status line.
    static QStringList statusTexts();

signals:
    void finished(klangor::ProgrammingRun::Outcome outcome);
    void statusTextChanged(const QString &text);
    void progressValueChanged(int value);
    void progressVisibleChanged(bool visible);
    void timerActiveChanged(bool active);

private:
    void startTool(const ToolCommand &command);
    void end(Outcome outcome, const QString &text);
    void setStatusText(const QString &text);
    void setProgressValue(int value);
    void setProgressVisible(bool visible);
    void setTimerActive(bool active);

    QString m_programFolder;
    ToolFactory m_makeTool;
    std::unique_ptr<ToolProcess> m_tool;

    bool m_running = false;
    quint64 m_runNumber = 0; // a start from an earlier run's timer is stale
    QString m_message;
    int m_progressValue = 0;
    bool m_progressVisible = false;
    bool m_timerActive = false;
};

} // namespace klangor
