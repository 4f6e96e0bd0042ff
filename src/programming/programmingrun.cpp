#include "programming/programmingrun.h"

#include "platform/programfiles.h"
#include "platform/toolprocess.h"
#include "programming/soundlist.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QPointer>

namespace klangor {

ToolCommand toolCommand(bool selectrix, int comPort)
{
    const QString port = QString::number(comPort);
    if (selectrix)
        return {CvToolFileName, {port, CvListFileName}};
    return {SoundToolFileName, {port, SoundListFileName, CvListFileName}};
}

namespace {

// Every text of the status line, in one place so that the window can make room for each.
const QString RunningText = QStringLiteral("Programmierung läuft...");
const QString NotFoundText = QStringLiteral("Programmiertool nicht gefunden!");
// Three ways to fail one start end in the same text.
const QString NotStartableText = QStringLiteral("Programmiertool startet nicht!");
const QString DoneText = QStringLiteral("Programmierung ist fertig!");
const QString FailedText = QStringLiteral("Ein Fehler ist aufgetreten!");
const QString CancelledText = QStringLiteral("Programmierung abgebrochen...");

constexpr int ProgressMaximum = 100;

} // namespace

QStringList ProgrammingRun::statusTexts()
{
    return {RunningText, NotFoundText, NotStartableText, DoneText, FailedText, CancelledText};
}

ProgrammingRun::ProgrammingRun(QString programFolder, ToolFactory makeTool, QObject *parent)
    : QObject(parent), m_programFolder(std::move(programFolder)), m_makeTool(std::move(makeTool))
{}

ProgrammingRun::~ProgrammingRun()
{
    // A run waiting further up the stack must get out; it notices that this object is gone.
    stopWaiting();
}

ProgrammingRun::Outcome ProgrammingRun::run(const SlotFileNames &names, int memoryMBit,
                                            const CommandChooser &chooseCommand)
{
    if (m_running)
        return Outcome::Ignored; // one tool is watched at a time
    m_running = true;
    m_cancelRequested = false;
    m_toolEnded = false;
    m_startFailed = false;
    m_tool.reset(); // the last run's tool is no longer ours to cancel
    const QPointer<ProgrammingRun> alive(this);

    WriteSoundList(m_programFolder, names, memoryMBit);
    QCoreApplication::processEvents(); // pending window events run once, as a cancel may be
    if (!alive)
        return Outcome::Interrupted;

    // A cancel during the sound list's yield has already reset the window: no tool then.
    Outcome outcome = Outcome::Cancelled;
    if (!m_cancelRequested) {
        setStatusText(RunningText);
        setProgressVisible(true); // goes on from where the last run left it
        setTimerActive(true);
        outcome = waitForTool(chooseCommand());
        if (!alive)
            return Outcome::Interrupted;
    }

    setProgressVisible(false);
    setTimerActive(false);
    m_running = false;
    return outcome;
}

ProgrammingRun::Outcome ProgrammingRun::waitForTool(const ToolCommand &command)
{
    m_tool = m_makeTool ? m_makeTool() : nullptr;
    if (!m_tool) {
        setStatusText(NotStartableText);
        return Outcome::NotStartable;
    }
    connect(m_tool.get(), &ToolProcess::finished, this, [this](int exitCode) {
        m_exitCode = exitCode;
        m_toolEnded = true;
        stopWaiting();
    });
    connect(m_tool.get(), &ToolProcess::startFailed, this, [this] {
        m_startFailed = true;
        stopWaiting();
    });

    if (!m_tool->start(command.program, command.arguments, m_programFolder)) {
        const bool missing = m_tool->startError() == ToolProcess::StartError::NotFound;
        setStatusText(missing ? NotFoundText : NotStartableText);
        return missing ? Outcome::NotFound : Outcome::NotStartable;
    }

    // Sleeps in the event loop until the tool ends or the run is cancelled: clicks, repaints
    // and timer ticks go on meanwhile, without polling.
    const QPointer<ProgrammingRun> alive(this);
    QEventLoop wait;
    m_wait = &wait;
    if (!m_toolEnded && !m_startFailed && !m_cancelRequested)
        wait.exec();
    if (!alive)
        return Outcome::Interrupted;
    m_wait = nullptr;

    if (m_cancelRequested)
        return Outcome::Cancelled; // the cancel's text stays
    if (m_startFailed) {
        setStatusText(NotStartableText);
        return Outcome::NotStartable;
    }
    if (!m_toolEnded)
        return Outcome::Interrupted; // the application is quitting; the tool runs on
    const bool success = m_exitCode == 0 || m_exitCode == ToolProcess::DoneExitCode;
    setStatusText(success ? DoneText : FailedText);
    return success ? Outcome::Done : Outcome::Failed;
}

void ProgrammingRun::cancel()
{
    if (m_running) {
        m_cancelRequested = true;
        if (m_tool && m_tool->isRunning())
            m_tool->terminate();
        stopWaiting();
    }
    setStatusText(CancelledText);
    setProgressVisible(false);
    setTimerActive(false);
}

void ProgrammingRun::tick()
{
    const int next = m_progressValue + 1;
    setProgressValue(next >= ProgressMaximum ? 0 : next);
}

void ProgrammingRun::stopWaiting()
{
    if (m_wait)
        m_wait->quit();
}

void ProgrammingRun::setStatusText(const QString &text)
{
    emit statusTextChanged(text); // also when unchanged: the window repaints at once
}

void ProgrammingRun::setProgressValue(int value)
{
    if (m_progressValue == value)
        return;
    m_progressValue = value;
    emit progressValueChanged(value);
}

void ProgrammingRun::setProgressVisible(bool visible)
{
    if (m_progressVisible == visible)
        return;
    m_progressVisible = visible;
    emit progressVisibleChanged(visible);
}

void ProgrammingRun::setTimerActive(bool active)
{
    if (m_timerActive == active)
        return;
    m_timerActive = active;
    emit timerActiveChanged(active);
}

} // namespace klangor
