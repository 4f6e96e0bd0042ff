#include "playback/systemsoundservice.h"

#include "playback/wavedecoder.h"

#include <QAudioDevice>
#include <QAudioSink>
#include <QDir>
#include <QMediaDevices>

namespace klangor {

namespace {

QAudioFormat int16Format(const PcmFormat &format)
{
    QAudioFormat audioFormat;
    audioFormat.setSampleRate(format.sampleRate);
    audioFormat.setChannelCount(format.channels);
    audioFormat.setSampleFormat(QAudioFormat::Int16);
    return audioFormat;
}

// A QAudioSink in pull mode, as in Qt's audio output example; one sink per format.
class QtAudioOutput final : public AudioOutput
{
public:
    explicit QtAudioOutput(QAudioDevice device) : m_device(std::move(device)) {}
    ~QtAudioOutput() override { stop(); }

    bool start(QIODevice *source, const PcmFormat &format, int bufferMs) override
    {
        if (!m_sink || m_format != format) {
            stop();
            // The sink spins the event loop while it is destroyed: not inside a handler.
            if (m_sink)
                m_sink.release()->deleteLater();
            m_sink = std::make_unique<QAudioSink>(m_device, int16Format(format));
            m_format = format;
        }
        m_sink->setBufferSize(2LL * format.channels * format.sampleRate * bufferMs / 1000);
        m_sink->start(source);
        return m_sink->error() == QAudio::NoError && m_sink->state() != QAudio::StoppedState;
    }

    void stop() override
    {
        if (m_sink)
            m_sink->stop();
    }

private:
    QAudioDevice m_device;
    std::unique_ptr<QAudioSink> m_sink;
    PcmFormat m_format;
};

} // namespace

SystemSoundService::SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output,
                                       std::function<void(const UserMessage &)> tellUser)
    : m_programFolder(std::move(programFolder)), m_engine(std::move(output)),
      m_tellUser(std::move(tellUser))
{}

void SystemSoundService::tellIfMute()
{
    // Once per run: a user listening to a group would otherwise get a box per sound.
    if (!m_engine.isAudible() && m_tellUser && !std::exchange(m_toldMute, true))
        m_tellUser({QStringLiteral("Es ist keine Tonausgabe verfügbar (kein Soundsystem oder "
                                   "kein Ausgabegerät). Bis zum nächsten Start von Klangor "
                                   "bleiben alle Sounds stumm."),
                    QStringLiteral("Klangor")});
}

void SystemSoundService::PlaySoundOnce(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), false);
    tellIfMute();
}

void SystemSoundService::PlaySoundLoop(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), true);
    tellIfMute();
}

void SystemSoundService::PlaySoundWait(const QString &bareName)
{
    m_engine.playAndWait(loadSoundOrDefault(QDir(m_programFolder).filePath(bareName)));
    tellIfMute();
}

void SystemSoundService::StopSound()
{
    m_engine.stop();
}

std::unique_ptr<SoundService>
createSystemSoundService(const QString &programFolder,
                         std::function<void(const UserMessage &)> tellUser)
{
    // Without a device the engine has no output and stays silent.
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    std::unique_ptr<AudioOutput> output;
    if (!device.isNull())
        output = std::make_unique<QtAudioOutput>(device);
    return std::make_unique<SystemSoundService>(programFolder, std::move(output),
                                                std::move(tellUser));
}

} // namespace klangor
