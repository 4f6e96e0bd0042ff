#include "playback/systemsoundservice.h"

#include "playback/pulseaudiooutput.h"
#include "playback/wavedecoder.h"

#include <QDir>

namespace klangor {

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
                                   "kein Ausgabegerät). Die Sounds bleiben stumm, bis "
                                   "wieder eine Tonausgabe erreichbar ist."),
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

void SystemSoundService::WaitUntilHeard()
{
    m_engine.waitUntilHeard();
}

void SystemSoundService::StopSound()
{
    m_engine.stop();
}

std::unique_ptr<SoundService>
createSystemSoundService(const QString &programFolder,
                         std::function<void(const UserMessage &)> tellUser)
{
    return std::make_unique<SystemSoundService>(programFolder, std::make_unique<PulseAudioOutput>(),
                                                std::move(tellUser));
}

} // namespace klangor
