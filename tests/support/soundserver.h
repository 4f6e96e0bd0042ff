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
// D-Bus of its own, as a Debian desktop runs them. It has only the sinks loaded into it.
class SoundServer
{
public:
    // kind: "pulseaudio" or "pipewire"; everything lives under base.
    SoundServer(QString kind, const QString &base);
    ~SoundServer() { stop(); }
    SoundServer(const SoundServer &) = delete;
    SoundServer &operator=(const SoundServer &) = delete;

    bool start();
    void stop();
    // Ends every process at once, as a crash would.
    void kill();
    bool loadPipeSink(const QString &name, const QString &fifo, int rate, int channels);
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

    QString m_kind;
    QString m_base;
    QString m_runtime;
    std::vector<std::pair<std::unique_ptr<QProcess>, bool>> m_processes;
};

} // namespace klangor::test
