#pragma once

#include "playback/playbackengine.h"
#include "playback/soundservice.h"

namespace klangor {

// The sound service on top of the playback engine: decodes the files (or takes the default
// sound in their place) and finds the bare names of PlaySoundWait in the program folder.
class SystemSoundService final : public SoundService
{
public:
    SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output,
                       std::function<void(const UserMessage &)> tellUser = {});

    void PlaySoundOnce(const QString &path) override;
    void PlaySoundLoop(const QString &path) override;
    void PlaySoundWait(const QString &bareName) override;
    void WaitUntilHeard() override;
    void StopSound() override;

private:
    void tellIfMute();

    QString m_programFolder;
    PlaybackEngine m_engine;
    std::function<void(const UserMessage &)> m_tellUser;
    bool m_toldMute = false;
};

} // namespace klangor
