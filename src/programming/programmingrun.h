#pragma once

#include "soundset/slotfilenames.h"

#include <functional>
#include <memory>
#include <QObject>
#include <QString>
#include <QStringList>

class QEventLoop;

namespace klangor {

class ToolProcess;

// One of the eight command lines of the programming tools.
struct ToolCommand
{
    QString program; // bare name, found in the program folder
    QStringList arguments;
};

// "sndburn.exe N soundlist.dat cvlist.dat", or with Selectrix "cvburn.exe N cvlist.dat".
ToolCommand toolCommand(bool selectrix, int comPort);

// The programming run: writes the sound list, runs the tool and waits for it without blocking
// the window, and reports the outcome. It holds what the window shows (status line, progress
// bar, timer) and announces every change, so the window only mirrors it.
class ProgrammingRun : public QObject
{
    Q_OBJECT

public:
    using ToolFactory = std::function<std::unique_ptr<ToolProcess>()>;
    // Asked once the tool is about to start, so it sees the options as they are then.
    using CommandChooser = std::function<ToolCommand()>;

    enum class Outcome
    {
        Done,         // exit code 0 or 258
        Failed,       // any other exit code, a crash included
        Cancelled,    // "Abbrechen" during the run
        NotFound,     // the tool is not in the program folder
        NotStartable, // the tool is there but could not be started
        Ignored,      // a run was already going
        Interrupted   // the application quit while the tool ran; the tool runs on
    };

    ProgrammingRun(QString programFolder, ToolFactory makeTool, QObject *parent = nullptr);
    ~ProgrammingRun() override;

    // The whole run; returns when the tool has ended or the run was cancelled. Events of the
    // window, timer ticks and cancel included, are handled meanwhile. A call while a run is
    // going changes nothing and returns Ignored.
    Outcome run(const SlotFileNames &names, int memoryMBit, const CommandChooser &chooseCommand);
    // "Abbrechen": terminates the tool of a run that is going, and only that.
    void cancel();
    // One step of the progress bar; wraps to 0 at the maximum.
    void tick();

    // Every text the run can put on the status line.
    static QStringList statusTexts();

signals:
    void statusTextChanged(const QString &text);
    void progressValueChanged(int value);
    void progressVisibleChanged(bool visible);
    void timerActiveChanged(bool active);

private:
    void setStatusText(const QString &text);
    void setProgressValue(int value);
    void setProgressVisible(bool visible);
    void setTimerActive(bool active);
    Outcome waitForTool(const ToolCommand &command);
    void stopWaiting();

    QString m_programFolder;
    ToolFactory m_makeTool;
    std::unique_ptr<ToolProcess> m_tool;
    QEventLoop *m_wait = nullptr;

    bool m_running = false;
    bool m_cancelRequested = false;
    bool m_toolEnded = false;
    bool m_startFailed = false;
    int m_exitCode = 0;

    int m_progressValue = 0;
    bool m_progressVisible = false;
    bool m_timerActive = false;
};

} // namespace klangor
