#include "platform/toolprocess_linux.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace klangor {

namespace {

bool isWindowsExecutable(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(2) == "MZ";
}

} // namespace

std::unique_ptr<ToolProcess> createSystemToolProcess()
{
    return std::make_unique<LinuxToolProcess>();
}

LinuxToolProcess::LinuxToolProcess(QObject *parent)
    : ToolProcess(parent), m_process(std::make_unique<QProcess>())
{
    connect(m_process.get(), &QProcess::finished, this, &LinuxToolProcess::onFinished);
    connect(m_process.get(), &QProcess::errorOccurred, this, &LinuxToolProcess::onErrorOccurred);
}

LinuxToolProcess::~LinuxToolProcess()
{
    if (!isRunning())
        return;
    // QProcess would kill its child on destruction. The tool may be in the middle of writing
    // the decoder, so it is let go instead: the QProcess lives on, unowned, and removes itself
    // once the tool has ended. Its standard channels are the null device, so the tool does not
    // notice when this program is gone.
    QProcess *orphan = m_process.release();
    orphan->disconnect(this);
    connect(orphan, &QProcess::finished, orphan, &QObject::deleteLater);
}

bool LinuxToolProcess::start(const QString &program, const QStringList &arguments,
                             const QString &workingFolder)
{
    m_startError = StartError::None;
    m_terminateRequested = false;
    if (isRunning()) {
        m_startError = StartError::NotStartable; // one tool per object
        return false;
    }

    const QString path = QDir(workingFolder).absoluteFilePath(program);
    const QFileInfo info(path);
    if (!info.isFile()) {
        m_startError = StartError::NotFound;
        return false;
    }

    QString executable = path;
    QStringList args = arguments;
    const QString wine = QStandardPaths::findExecutable(QStringLiteral("wine"));
    if (isWindowsExecutable(path) && !wine.isEmpty()) {
        executable = wine;
        args.prepend(path);
    } else if (!info.isExecutable()) {
        m_startError = StartError::NotStartable;
        return false;
    }

    // No window and no pipes: the tool talks to the decoder, not to us.
    m_process->setWorkingDirectory(workingFolder);
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->setStandardOutputFile(QProcess::nullDevice());
    m_process->setStandardErrorFile(QProcess::nullDevice());

    m_inStart = true;
    m_process->start(executable, args);
    m_inStart = false;
    if (m_process->state() == QProcess::NotRunning) {
        m_startError = StartError::NotStartable;
        return false;
    }
    return true;
}

bool LinuxToolProcess::isRunning() const
{
    return m_process && m_process->state() != QProcess::NotRunning;
}

void LinuxToolProcess::terminate()
{
    if (!isRunning())
        return;
    m_terminateRequested = true;
    m_process->kill(); // at once, as TerminateProcess does; the exit code is mapped to 1 below
}

void LinuxToolProcess::onFinished(int exitCode, QProcess::ExitStatus status)
{
    if (status == QProcess::CrashExit) {
        // For a killed process QProcess reports the signal number as its exit code.
        emit finished(m_terminateRequested ? TerminatedExitCode : crashExitCode(exitCode));
        return;
    }
    emit finished(exitCode);
}

void LinuxToolProcess::onErrorOccurred(QProcess::ProcessError error)
{
    if (error != QProcess::FailedToStart)
        return; // a crash is reported through finished()
    m_startError = StartError::NotStartable;
    if (!m_inStart) // start() itself reports a refusal it sees at once
        emit startFailed();
}

} // namespace klangor
