#include "platform/serialports.h"
#include "platform/toolprocess.h"
#include "platform/wineprefix.h"

#include <csignal>
#include <optional>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <sys/types.h>
#include <unistd.h>

namespace klangor {

namespace {

// The launcher's report on its standard output.
const QByteArray ExitCodeReport = "klangor-launch exit-code ";
const QByteArray StartFailedReport = "klangor-launch start-failed ";
constexpr qsizetype MaxReportBytes = 4096;
// In the environment of every process of a run, with a value of that run's own.
const QString RunMarkName = QStringLiteral("KLANGOR_TOOL_RUN");

bool isWindowsExecutable(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(2) == "MZ";
}

// Reads at most maxBytes of a small file; under /proc its size is not known beforehand.
QByteArray readSmallFile(const QString &path, qint64 maxBytes)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ? file.read(maxBytes)
                                                                  : QByteArray();
}

// Whether pid is a live process of the run: in the tool's session, or carrying the run's mark
// in its environment (a daemon that left the session, wine's processes of the run).
bool belongsToRun(pid_t pid, pid_t session, const QByteArray &markEntry)
{
    const QString folder = QStringLiteral("/proc/%1/").arg(pid);
    const QByteArray stat = readSmallFile(folder + QStringLiteral("stat"), 4096);
    // "pid (name) state ppid pgrp session ...": the name may hold anything but ends at the
    // last ')'.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 4 || fields[0] == "Z" || fields[0] == "X")
        return false; // gone, or already dead and only waiting to be reaped
    if (fields[3].toInt() == session)
        return true;
    const QByteArray environment = readSmallFile(folder + QStringLiteral("environ"), 1 << 20);
    return environment.startsWith(markEntry) || environment.contains('\0' + markEntry);
}

// Kills every process of the run. A round that finds one looks again: a process may have
// started another between the look and the kill.
void killRun(pid_t session, const QByteArray &mark)
{
    ::kill(-session, SIGKILL); // the tool's own process group, at once
    // The tool itself, our unreaped child, also before it made its session or had its mark.
    ::kill(session, SIGKILL);
    const QByteArray markEntry = mark + '\0';
    for (int round = 0; round < 20; ++round) {
        bool found = false;
        const QStringList entries =
            QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &entry : entries) {
            bool isNumber = false;
            const pid_t pid = entry.toInt(&isNumber);
            if (isNumber && pid != getpid() && belongsToRun(pid, session, markEntry)) {
                ::kill(pid, SIGKILL);
                found = true;
            }
        }
        if (!found)
            return;
    }
}

// Runs the tool through QProcess, in a session of its own and with a mark in its environment
// that every process it starts inherits, so that a cancel can find them all. A Windows
// executable (an "MZ" file) goes through wine, in the program's own prefix, with its serial
// port made to reach the adapter, and through the launcher, which hands on its whole exit code;
// anything else is executed directly.
class LinuxToolProcess final : public ToolProcess
{
public:
    explicit LinuxToolProcess(ToolSetup setup)
        : m_setup(std::move(setup)), m_process(std::make_unique<QProcess>())
    {
        connect(m_process.get(), &QProcess::finished, this, &LinuxToolProcess::onFinished);
        connect(m_process.get(), &QProcess::errorOccurred, this,
                &LinuxToolProcess::onErrorOccurred);
        connect(m_process.get(), &QProcess::readyReadStandardOutput, this, [this] {
            m_report += m_process->readAllStandardOutput();
            m_report = m_report.right(MaxReportBytes);
        });
        m_process->setChildProcessModifier([] { setsid(); });
    }

    ~LinuxToolProcess() override
    {
        if (!isRunning())
            return;
        // QProcess would kill its child on destruction and wait for it on this thread. The
        // tool may be in the middle of writing the decoder, so it is let go instead, and a
        // killed one may take its time closing the port: the QProcess lives on, unowned, and
        // removes itself once the tool has ended. Its input and error are the null device,
        // so the tool does not notice when this program is gone.
        QProcess *orphan = m_process.release();
        orphan->disconnect(this);
        connect(orphan, &QProcess::finished, orphan, &QObject::deleteLater);
    }

    bool start(const QString &program, const QStringList &arguments, const QString &workingFolder,
               const ToolPort &port) override
    {
        m_startError = StartError::None;
        m_startMessage.clear();
        m_terminateRequested = false;
        m_throughLauncher = false;
        m_updateStamp.reset();
        m_report.clear();
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
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString wine = QStandardPaths::findExecutable(QStringLiteral("wine"));
        if (isWindowsExecutable(path) && !wine.isEmpty()) {
            if (!preparePort(port)) {
                m_startError = StartError::PortUnavailable;
                return false;
            }
            executable = wine;
            m_throughLauncher = QFileInfo(m_setup.launcher).isFile();
            // Started from the working folder by its bare name, as the tool expects.
            args.prepend(m_throughLauncher ? program : path);
            if (m_throughLauncher)
                args.prepend(m_setup.launcher);
            addWineEnvironment(environment);
            m_updateStamp = readSmallFile(updateStampPath(), 64);
        } else if (!info.isExecutable()) {
            m_startError = StartError::NotStartable;
            return false;
        }
        const QString run = QStringLiteral("%1.%2").arg(getpid()).arg(
            QRandomGenerator::global()->generate64(), 16, 16, QLatin1Char('0'));
        environment.insert(RunMarkName, run);
        m_mark = (RunMarkName + QLatin1Char('=') + run).toLatin1();

        // No window and no input: the tool talks to the decoder. Only the launcher's report
        // comes back; it gives the tool the null device for its output.
        m_process->setWorkingDirectory(workingFolder);
        m_process->setProcessEnvironment(environment);
        m_process->setStandardInputFile(QProcess::nullDevice());
        if (!m_throughLauncher)
            m_process->setStandardOutputFile(QProcess::nullDevice());
        m_process->setStandardErrorFile(QProcess::nullDevice());

        m_inStart = true;
        m_process->start(executable, args);
        m_inStart = false;
        if (m_process->state() == QProcess::NotRunning) {
            m_startError = StartError::NotStartable;
            return false;
        }
        m_session = static_cast<pid_t>(m_process->processId());
        return true;
    }

    StartError startError() const override { return m_startError; }
    QString startMessage() const override { return m_startMessage; }

    bool isRunning() const override
    {
        return m_process && m_process->state() != QProcess::NotRunning;
    }

    void terminate() override
    {
        if (!isRunning())
            return;
        m_terminateRequested = true;
        killRun(m_session, m_mark); // at once; the exit code is mapped to 1 below
        // A killed wineserver never saves the registry of a prefix that wine set up or updated
        // in this run, yet wine has marked it done: without the mark it does it again next time.
        if (m_updateStamp && readSmallFile(updateStampPath(), 64) != *m_updateStamp)
            QFile::remove(updateStampPath());
    }

private:
    QString updateStampPath() const
    {
        return QDir(m_setup.winePrefix).filePath(QStringLiteral(".update-timestamp"));
    }

    bool preparePort(const ToolPort &port)
    {
        const Result<SerialDevice> device =
            deviceForPort(listSerialDevices(m_setup.deviceRoot), port.number, port.device);
        Status ready = device ? checkDeviceAccess(device.value()) : Status(device.error());
        if (ready)
            ready = prepareWinePort(m_setup.winePrefix, port.number, device.value().path);
        m_startMessage = ready ? QString() : ready.error().text;
        return ready.ok();
    }

    void addWineEnvironment(QProcessEnvironment &environment) const
    {
        environment.insert(QStringLiteral("WINEPREFIX"), m_setup.winePrefix);
        // A new prefix is set up without debug output and without offers to install Mono
        // and Gecko, which no programming tool needs.
        if (!environment.contains(QStringLiteral("WINEDEBUG")))
            environment.insert(QStringLiteral("WINEDEBUG"), QStringLiteral("-all"));
        if (!environment.contains(QStringLiteral("WINEDLLOVERRIDES")))
            environment.insert(QStringLiteral("WINEDLLOVERRIDES"),
                               QStringLiteral("mscoree,mshtml="));
    }

    void onFinished(int exitCode, QProcess::ExitStatus status)
    {
        if (m_terminateRequested) {
            emit finished(TerminatedExitCode);
            return;
        }
        // For a killed process QProcess reports the signal number as its exit code. A crash
        // becomes 128 + signal, as shells report it: never 0 or 258.
        if (status == QProcess::CrashExit) {
            emit finished(128 + exitCode);
            return;
        }
        if (m_throughLauncher) {
            m_report += m_process->readAllStandardOutput();
            const qsizetype at = m_report.lastIndexOf(ExitCodeReport);
            if (at >= 0) {
                // Windows exit codes are unsigned 32-bit; 0xC0000005 becomes negative here.
                const QByteArray code = m_report.mid(at + ExitCodeReport.size()).split('\n')[0];
                bool isNumber = false;
                const quint32 windowsCode = code.trimmed().toUInt(&isNumber);
                emit finished(isNumber ? static_cast<int>(windowsCode) : TerminatedExitCode);
                return;
            }
            if (m_report.contains(StartFailedReport)) {
                m_startError = StartError::NotStartable;
                emit startFailed();
                return;
            }
            // The launcher ended without a report: wine itself failed.
            emit finished(exitCode == 0 ? TerminatedExitCode : exitCode);
            return;
        }
        // Without the launcher wine hands on only the low byte of a Windows exit code: a 2 may
        // be 258, but is taken for what it says.
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

    ToolSetup m_setup;
    std::unique_ptr<QProcess> m_process;
    StartError m_startError = StartError::None;
    QString m_startMessage;
    QByteArray m_mark;
    QByteArray m_report;
    std::optional<QByteArray> m_updateStamp; // of a run through wine, as it was at the start
    pid_t m_session = 0;
    bool m_inStart = false;
    bool m_terminateRequested = false;
    bool m_throughLauncher = false;
};

} // namespace

std::unique_ptr<ToolProcess> createSystemToolProcess(const ToolSetup &setup)
{
    return std::make_unique<LinuxToolProcess>(setup);
}

} // namespace klangor
