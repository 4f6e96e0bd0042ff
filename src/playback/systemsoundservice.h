#pragma once

#include "playback/playbackengine.h"
#include "playback/soundservice.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QThreadPool>

namespace klangor {

// The sound service on top of the playback engine: decodes the files (or takes the default
// sound in their place) and finds the bare names of PlaySoundWait in the program folder.
class SystemSoundService final : public SoundService
{
public:
    SystemSoundService(QString programFolder, std::unique_ptr<AudioOutput> output,
                       std::function<void(const UserMessage &)> tellUser = {});
    ~SystemSoundService() override;

    void PlaySoundOnce(const QString &path) override;
    void PlaySoundLoop(const QString &path) override;
    void PlaySoundWait(const QString &bareName) override;
    void WhenSoundsHeard(std::function<void()> heard) override;
    void StopSound() override;

private:
    void tellIfMute();
    void played(QDeadlineTimer meantUntil);
    void playFile(const QString &path, bool loop);

    QString m_programFolder;
    PlaybackEngine m_engine;
    std::function<void(const UserMessage &)> m_tellUser;
    bool m_toldMute = false; // of this loss of sound; told again once sound was back
    // Until then a sound is meant to be heard: a loss then is told at once, a later one with
    // the next sound asked for, never to a user who is not listening.
    QDeadlineTimer m_meantUntil;
    quint64 m_asked = 0; // counts the sounds asked for: a late read plays only if still wanted
    QObject m_context;   // where a file read off the window's thread comes back to
    QThreadPool m_readers;
};

} // namespace klangor
