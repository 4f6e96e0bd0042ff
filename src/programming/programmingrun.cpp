#include "programming/programmingrun.h"

#include "platform/programfiles.h"
#include "programming/soundlist.h"

#include <QTimer>

namespace klangor {

ToolCommand toolCommand(bool selectrix, int comPort)
{
    const QString port = QString::number(comPort);
    if (selectrix)
        return {CvToolFileName, {port, CvListFileName}, {comPort, {}}};
    return {SoundToolFileName, {port, SoundListFileName, CvListFileName}, {comPort, {}}};
}

namespace {

// Every text of the status line, in one place so that the window can make room for each.
const QString RunningText = QStringLiteral("Programmierung läuft...");
const QString NotFoundText = QStringLiteral("Programmiertool nicht gefunden!");
// Three ways to fail one start end in the same text.
const QString NotStartableText = QStringLiteral("Programmiertool startet nicht!");
const QString PortUnavailableText = QStringLiteral("Schnittstelle nicht bereit!");
const QString DoneText = QStringLiteral("Programmierung ist fertig!");
const QString FailedText = QStringLiteral("Ein Fehler ist aufgetreten!");
const QString CancelledText = QStringLiteral("Programmierung abgebrochen...");

constexpr int ProgressMaximum = 100;

} // namespace

QStringList ProgrammingRun::statusTexts()
{
    return {RunningText, NotFoundText, NotStartableText, PortUnavailableText,
            DoneText,    FailedText,   CancelledText};
}

ProgrammingRun::ProgrammingRun(QString programFolder, ToolFactory makeTool, QObject *parent)
    : QObject(parent), m_programFolder(std::move(programFolder)), m_makeTool(std::move(makeTool))
{}

ProgrammingRun::~ProgrammingRun() = default;

bool ProgrammingRun::start(const SlotFileNames &names, int memoryMBit,
                           const CommandChooser &chooseCommand)
{
    if (m_running)
        return false; // one tool is watched at a time
    m_running = true;
    m_message.clear();
    // The last run's tool is no longer ours to cancel; a cancelled one is already dead.
    m_tool.reset();
    const quint64 run = ++m_runNumber;

    WriteSoundList(m_programFolder, names, memoryMBit);
    // The tool starts from the event loop, so window events already pending (a click on
    // "Abbrechen") are handled first; a run cancelled meanwhile starts no tool.
    QTimer::singleShot(0, this, [this, run, chooseCommand] {
        if (!m_running || run != m_runNumber)
            return;
        setStatusText(RunningText);
        setProgressVisible(true); // goes on from where the last run left it
        setTimerActive(true);
        startTool(chooseCommand());
    });
    return true;
}

void ProgrammingRun::startTool(const ToolCommand &command)
{
    m_tool = m_makeTool ? m_makeTool() : nullptr;
    if (!m_tool) {
        end(Outcome::NotStartable, NotStartableText);
        return;
    }
    connect(m_tool.get(), &ToolProcess::finished, this, [this](int exitCode) {
        const bool success = exitCode == 0 || exitCode == ToolProcess::DoneExitCode;
        end(success ? Outcome::Done : Outcome::Failed, success ? DoneText : FailedText);
    });
    connect(m_tool.get(), &ToolProcess::startFailed, this,
            [this] { end(Outcome::NotStartable, NotStartableText); });

    if (m_tool->start(command.program, command.arguments, m_programFolder, command.port))
        return;
    switch (m_tool->startError()) {
    case ToolProcess::StartError::NotFound:
        end(Outcome::NotFound, NotFoundText);
        break;
    case ToolProcess::StartError::PortUnavailable:
        m_message = m_tool->startMessage();
        end(Outcome::PortUnavailable, PortUnavailableText);
        break;
    default:
        end(Outcome::NotStartable, NotStartableText);
        break;
    }
}

void ProgrammingRun::cancel()
{
    if (m_running) {
        if (m_tool) {
            m_tool->disconnect(this); // its late end changes nothing
            m_tool->terminate();
        }
        end(Outcome::Cancelled, CancelledText);
        return;
    }
    setStatusText(CancelledText);
    setProgressVisible(false);
    setTimerActive(false);
}

void ProgrammingRun::end(Outcome outcome, const QString &text)
{
    setStatusText(text);
    setProgressVisible(false);
    setTimerActive(false);
    m_running = false;
    emit finished(outcome);
}

void ProgrammingRun::tick()
{
    const int next = m_progressValue + 1;
    setProgressValue(next >= ProgressMaximum ? 0 : next);
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
