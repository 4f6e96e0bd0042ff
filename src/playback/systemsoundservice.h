#pragma once

#include "playback/playbackengine.h"
#include "playback/soundservice.h"

namespace klangor {

// The sound service on top of the playback engine: decodes the files (or takes the default
// sound in their place) and finds the bare names of PlaySoundWait in the program folder.
class SystemSoundService final : public SoundService
{
public:
    SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output);

    void PlaySoundOnce(const QString &path) override;
    void PlaySoundLoop(const QString &path) override;
    void PlaySoundWait(const QString &bareName) override;
    void StopSound() override;

private:
    QString m_programFolder;
    PlaybackEngine m_engine;
};

} // namespace klangor
