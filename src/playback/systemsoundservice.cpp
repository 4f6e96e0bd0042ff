#include "playback/systemsoundservice.h"

#include "playback/pulseaudiooutput.h"
#include "playback/wavedecoder.h"

#include <QDir>

namespace klangor {

SystemSoundService::SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output,
                                       std::function<void(const UserMessage &)> tellUser)
    : m_programFolder(std::move(programFolder)), m_engine(std::move(output)),
      m_tellUser(std::move(tellUser))
{
    m_engine.onAudibleChanged([this](bool audible) {
        if (audible)
            m_toldMute = false;
        else if (m_playing)
            tellIfMute(); // lost while a sound was meant to be heard
    });
}

void SystemSoundService::played()
{
    m_playing = true;
    tellIfMute();
}

void SystemSoundService::tellIfMute()
{
    // Once per loss: a user listening to a group would otherwise get a box per sound.
    if (!m_engine.isAudible() && m_tellUser && !std::exchange(m_toldMute, true))
        m_tellUser({QStringLiteral("Es ist keine Tonausgabe verfügbar (kein Soundsystem oder "
                                   "kein Ausgabegerät). Die Sounds bleiben stumm, bis "
                                   "wieder eine Tonausgabe erreichbar ist."),
                    QStringLiteral("Klangor")});
}

void SystemSoundService::PlaySoundOnce(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), false);
    played();
}

void SystemSoundService::PlaySoundLoop(const QString &path)
{
    m_engine.play(loadSoundOrDefault(path), true);
    played();
}

void SystemSoundService::PlaySoundWait(const QString &bareName)
{
    m_engine.playInGroup(loadSoundOrDefault(QDir(m_programFolder).filePath(bareName)));
    played();
}

void SystemSoundService::WhenSoundsHeard(std::function<void()> heard)
{
    m_engine.whenHeard(std::move(heard));
}

void SystemSoundService::StopSound()
{
    m_playing = false;
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
