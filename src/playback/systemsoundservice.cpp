#include "playback/systemsoundservice.h"

#include "playback/qtaudiooutput.h"
#include "playback/wavedecoder.h"

#include <QAudioDevice>
#include <QDir>
#include <QMediaDevices>

namespace klangor {

namespace {

// What the output holds ahead of the ear. PlaySoundWait hands over its last frame this long
// before the sound ends, which leaves the next one ample time to queue up.
constexpr int outputBufferMs = 100;

} // namespace

SystemSoundService::SystemSoundService(QString programFolder,
                                       PlaybackEngine::OutputFactory outputFactory)
    : m_programFolder(std::move(programFolder)), m_engine(std::move(outputFactory))
{}

void SystemSoundService::PlaySoundOnce(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), false);
}

void SystemSoundService::PlaySoundLoop(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), true);
}

void SystemSoundService::PlaySoundWait(const QString &bareName)
{
    const QString path = QDir(m_programFolder).filePath(bareName);
    m_engine.playAndWait(loadSoundOrDefault(path));
}

void SystemSoundService::StopSound(const QByteArray &)
{
    // The placeholder holds no samples: playing it is silence, and that is all it is for.
    m_engine.stop();
}

std::unique_ptr<SoundService> createSystemSoundService(const QString &programFolder)
{
    // Asked once on this thread; without a device the engine stays mute from the start.
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    PlaybackEngine::OutputFactory factory = [device]() -> std::unique_ptr<AudioOutput> {
        if (device.isNull())
            return nullptr;
        return std::make_unique<QtAudioOutput>(device, outputBufferMs);
    };
    return std::make_unique<SystemSoundService>(programFolder, std::move(factory));
}

} // namespace klangor
