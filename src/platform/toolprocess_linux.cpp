#include "platform/toolprocess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace klangor {

namespace {

bool isWindowsExecutable(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(2) == "MZ";
}

// Runs the tool through QProcess. A Windows executable (an "MZ" file) goes through wine when
// wine is installed; anything else is executed directly.
class LinuxToolProcess final : public ToolProcess
{
public:
    LinuxToolProcess() : m_process(std::make_unique<QProcess>())
    {
        connect(m_process.get(), &QProcess::finished, this, &LinuxToolProcess::onFinished);
        connect(m_process.get(), &QProcess::errorOccurred, this,
                &LinuxToolProcess::onErrorOccurred);
    }

    ~LinuxToolProcess() override
    {
        if (!isRunning())
            return;
        // QProcess would kill its child on destruction. The tool may be in the middle of
        // writing the decoder, so it is let go instead: the QProcess lives on, unowned, and
        // removes itself once the tool has ended. Its standard channels are the null device,
        // so the tool does not notice when this program is gone.
        QProcess *orphan = m_process.release();
        orphan->disconnect(this);
        connect(orphan, &QProcess::finished, orphan, &QObject::deleteLater);
    }

    bool start(const QString &program, const QStringList &arguments,
               const QString &workingFolder) override
    {
        m_startError = StartError::None;
        m_terminateRequested = false;
        m_throughWine = false;
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
            m_throughWine = true;
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

    StartError startError() const override { return m_startError; }

    bool isRunning() const override
    {
        return m_process && m_process->state() != QProcess::NotRunning;
    }

    void terminate() override
    {
        if (!isRunning())
            return;
        m_terminateRequested = true;
        m_process->kill(); // at once; the exit code is mapped to 1 below
    }

private:
    void onFinished(int exitCode, QProcess::ExitStatus status)
    {
        // For a killed process QProcess reports the signal number as its exit code. A crash
        // becomes 128 + signal, as shells report it: never 0 or 258.
        if (status == QProcess::CrashExit)
            exitCode = m_terminateRequested ? TerminatedExitCode : 128 + exitCode;
        // wine ends with the low byte of the Windows exit code (1 when that byte is 0 but the
        // code is not) and offers no way to learn more, so the tool's 258, a good run, arrives
        // as 2. It is taken for 258: a Windows 2 cannot be told apart from it.
        else if (m_throughWine && exitCode == 2)
            exitCode = DoneExitCode;
        emit finished(exitCode);
    }

    void onErrorOccurred(QProcess::ProcessError error)
    {
        if (error != QProcess::FailedToStart)
            return; // a crash is reported through finished()
        m_startError = StartError::NotStartable;
        if (!m_inStart) // start() itself reports a refusal it sees at once
            emit startFailed();
    }

    std::unique_ptr<QProcess> m_process;
    StartError m_startError = StartError::None;
    bool m_inStart = false;
    bool m_terminateRequested = false;
    bool m_throughWine = false;
};

} // namespace

std::unique_ptr<ToolProcess> createSystemToolProcess()
{
    return std::make_unique<LinuxToolProcess>();
}

} // namespace klangor
