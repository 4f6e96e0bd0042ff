#pragma once

#include <memory>
#include <optional>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <utility>
#include <vector>

namespace klangor::test {

// A private sound server answering libpulse on <runtime>/pulse/native: PulseAudio, or PipeWire
// (also on <runtime>/pipewire-0) with its PulseAudio server and its session manager under a
// D-Bus of its own, as a Debian desktop runs them. It has only the sinks added or loaded
// into it.
class SoundServer
{
public:
    // kind: "pulseaudio" or "pipewire"; everything lives under base.
    SoundServer(QString kind, const QString &base);
    ~SoundServer() { stop(); }
    SoundServer(const SoundServer &) = delete;
    SoundServer &operator=(const SoundServer &) = delete;

    // A pipe sink timed by the system clock, its FIFO read by the caller. Added before start():
    // on PipeWire the daemon hosts it, as it hosts a sound card, so that no third process
    // stands between a client and what it plays to. Its pipe gets 1 MiB where the system allows
    // (else a warning) and is held until stop() or kill(), so that a reader held up for a
    // moment neither stalls the sink nor loses what it played.
    void addPipeSink(const QString &name, const QString &fifo, int rate, int channels);
    bool start();
    void stop();
    // Ends every process at once, as a crash would.
    void kill();
    bool loadNullSink(const QString &name, int rate, int channels);
    // The processes that do the server's work, whose CPU time counts.
    QList<qint64> pids() const;
    // The process the clients talk to.
    qint64 serverPid() const;
    QString runtime() const { return m_runtime; }
    QString socket() const { return m_runtime + QStringLiteral("/pulse/native"); }
    QProcessEnvironment clientEnvironment() const;
    std::optional<QString> pactl(const QStringList &args) const;

private:
    bool launch(const QString &program, const QStringList &args, bool counts);
    bool loadSink(const QString &module, const QString &name, const QStringList &options);
    bool waitForSink(const QString &name) const;
    void widenPipes();
    void closePipes();

    QString m_kind;
    QString m_base;
    QString m_runtime;
    struct PipeSink
    {
        QString name, fifo;
        int rate, channels;
    };
    std::vector<PipeSink> m_pipeSinks;
    std::vector<int> m_pipes; // held open, so that their size lasts
    std::vector<std::pair<std::unique_ptr<QProcess>, bool>> m_processes;
};

} // namespace klangor::test
