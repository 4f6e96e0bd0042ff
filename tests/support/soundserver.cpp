#include "support/soundserver.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <QDir>
#include <QFile>
#include <QTest>
#include <sys/prctl.h>
#include <unistd.h>

namespace klangor::test {

namespace {

template <typename Ready> bool waitFor(Ready ready)
{
    return QTest::qWaitFor(ready, 10000);
}

} // namespace

SoundServer::SoundServer(QString kind, const QString &base)
    : m_kind(std::move(kind)), m_base(base), m_runtime(base + QStringLiteral("/runtime"))
{
    QDir().mkpath(m_runtime + QStringLiteral("/pulse"));
    QFile::setPermissions(m_runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void SoundServer::addPipeSink(const QString &name, const QString &fifo, int rate, int channels)
{
    Q_ASSERT(m_processes.empty());
    m_pipeSinks.push_back({name, fifo, rate, channels});
}

bool SoundServer::start()
{
    // A killed server leaves its sockets behind.
    for (const char *left : {"/pulse/native", "/pipewire-0", "/bus"})
        QFile::remove(m_runtime + QString::fromLatin1(left));
    bool ok = true;
    if (m_kind == QLatin1String("pulseaudio")) {
        // -n: no default.pa, only these modules. A desktop's server suspends a sink nobody
        // plays to (after 5 s); here after 1 s, so that the idle figure sees it.
        ok = launch(QStringLiteral("pulseaudio"),
                    {QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                     QStringLiteral("-n"), QStringLiteral("--use-pid-file=no"),
                     QStringLiteral("--disallow-exit"), QStringLiteral("--log-target=stderr"),
                     QStringLiteral("--load=module-suspend-on-idle timeout=1"),
                     QStringLiteral("--load=module-native-protocol-unix socket=%1 "
                                    "auth-anonymous=1")
                         .arg(socket())},
                    true);
    } else {
        // Loaded through pipewire-pulse, a pipe sink would live in that process: a moment in
        // which it is not scheduled loses a whole cycle of what our stream played in time.
        QString modules;
        for (const PipeSink &sink : m_pipeSinks) {
            QString fifo = sink.fifo;
            fifo.replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
                .replace(QLatin1Char('"'), QStringLiteral("\\\""));
            modules +=
                QStringLiteral("{ name = libpipewire-module-pipe-tunnel args = { "
                               "tunnel.mode = sink pipe.filename = \"%1\" node.name = "
                               "\"%2\" audio.format = S16LE audio.rate = %3 "
                               "audio.channels = %4 audio.position = [ %5 ] } }\n")
                    .arg(fifo, sink.name, QString::number(sink.rate),
                         QString::number(sink.channels),
                         sink.channels == 1 ? QStringLiteral("MONO") : QStringLiteral("FL FR"));
        }
        if (!modules.isEmpty()) {
            const QString conf = m_base + QStringLiteral("/pipewire/pipewire.conf.d");
            QDir().mkpath(conf);
            QFile file(conf + QStringLiteral("/sinks.conf"));
            ok = file.open(QIODevice::WriteOnly) &&
                 file.write(QStringLiteral("context.modules = [\n%1]\n").arg(modules).toUtf8()) >
                     0 &&
                 file.flush();
        }
        ok = ok &&
             launch(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--session"), QStringLiteral("--nofork"),
                     QStringLiteral("--nopidfile"),
                     QStringLiteral("--address=unix:path=") + m_runtime + QStringLiteral("/bus")},
                    false) &&
             waitFor([&] { return QFile::exists(m_runtime + QStringLiteral("/bus")); }) &&
             launch(QStringLiteral("pipewire"), {}, true) &&
             waitFor([&] { return QFile::exists(m_runtime + QStringLiteral("/pipewire-0")); }) &&
             launch(QStringLiteral("wireplumber"), {}, false) &&
             launch(QStringLiteral("pipewire-pulse"), {}, true);
    }
    ok = ok && waitFor([&] { return pactl({QStringLiteral("info")}).has_value(); });
    for (const PipeSink &sink : m_pipeSinks) {
        if (!ok)
            break;
        if (m_kind == QLatin1String("pulseaudio"))
            ok = loadSink(QStringLiteral("module-pipe-sink"), sink.name,
                          {QStringLiteral("file=") + sink.fifo,
                           QStringLiteral("rate=%1").arg(sink.rate),
                           QStringLiteral("channels=%1").arg(sink.channels),
                           QStringLiteral("use_system_clock_for_timing=yes")});
        else
            ok = waitForSink(sink.name);
        if (!ok)
            std::fprintf(stderr, "the sink %s did not appear\n", qPrintable(sink.name));
    }
    if (ok)
        widenPipes();
    return ok;
}

// A pipe's size belongs to the pipe, which lasts while anyone holds it open.
void SoundServer::widenPipes()
{
    closePipes();
    for (const PipeSink &sink : m_pipeSinks) {
        const int pipe =
            ::open(QFile::encodeName(sink.fifo).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (pipe < 0 || ::fcntl(pipe, F_SETPIPE_SZ, 1 << 20) < 0)
            std::fprintf(stderr, "warning: %s keeps a pipe of the default size\n",
                         qPrintable(sink.fifo));
        if (pipe >= 0)
            m_pipes.push_back(pipe);
    }
}

bool SoundServer::loadNullSink(const QString &name, int rate, int channels)
{
    return loadSink(
        QStringLiteral("module-null-sink"), name,
        {QStringLiteral("rate=%1").arg(rate), QStringLiteral("channels=%1").arg(channels)});
}

bool SoundServer::loadSink(const QString &module, const QString &name, const QStringList &options)
{
    return pactl(QStringList{QStringLiteral("load-module"), module,
                             QStringLiteral("sink_name=") + name, QStringLiteral("format=s16le")} +
                 options)
               .has_value() &&
           waitForSink(name);
}

bool SoundServer::waitForSink(const QString &name) const
{
    return waitFor([&] {
        return pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sinks")})
            .value_or(QString())
            .contains(QLatin1Char('\t') + name + QLatin1Char('\t'));
    });
}

void SoundServer::stop()
{
    for (auto it = m_processes.rbegin(); it != m_processes.rend(); ++it) {
        QProcess &process = *it->first;
        if (process.state() == QProcess::NotRunning)
            continue;
        process.terminate();
        if (!process.waitForFinished(3000)) {
            process.kill();
            process.waitForFinished(2000);
        }
    }
    m_processes.clear();
    closePipes();
}

void SoundServer::kill()
{
    for (auto &[process, counts] : m_processes) {
        process->kill();
        process->waitForFinished(2000);
    }
    m_processes.clear();
    closePipes();
}

void SoundServer::closePipes()
{
    for (const int pipe : std::exchange(m_pipes, {}))
        ::close(pipe);
}

QList<qint64> SoundServer::pids() const
{
    QList<qint64> pids;
    for (const auto &[process, counts] : m_processes)
        if (counts)
            pids << process->processId();
    return pids;
}

qint64 SoundServer::serverPid() const
{
    const QList<qint64> all = pids();
    return all.isEmpty() ? 0 : all.first();
}

QProcessEnvironment SoundServer::clientEnvironment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:") + socket());
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), m_runtime + QStringLiteral("/pulse"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime);
    env.insert(QStringLiteral("PIPEWIRE_RUNTIME_DIR"), m_runtime);
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
               QStringLiteral("unix:path=") + m_runtime + QStringLiteral("/bus"));
    for (const char *dir : {"HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME"})
        env.insert(QString::fromLatin1(dir), m_base);
    return env;
}

std::optional<QString> SoundServer::pactl(const QStringList &args) const
{
    QProcess process;
    process.setProcessEnvironment(clientEnvironment());
    process.start(QStringLiteral("pactl"), args);
    if (!process.waitForFinished(3000) || process.exitCode() != 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardOutput());
}

bool SoundServer::launch(const QString &program, const QStringList &args, bool counts)
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(clientEnvironment());
    // The servers go with their user even when that is killed half-way.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    const QString log = m_base + QStringLiteral("/server.log");
    process->setStandardOutputFile(log, QIODevice::Append);
    process->setStandardErrorFile(log, QIODevice::Append);
    process->start(program, args);
    const bool started = process->waitForStarted(5000);
    m_processes.emplace_back(std::move(process), counts);
    return started;
}

} // namespace klangor::test
