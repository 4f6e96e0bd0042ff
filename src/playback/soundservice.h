#pragma once

#include "common/result.h"

#include <functional>
#include <QString>

namespace klangor {

// The platform's sound service: one sound at a time, starting any sound ends the one
// playing. A missing or unplayable file plays the default sound in its place.
class SoundService
{
public:
    virtual ~SoundService() = default;

    // Plays the file once; returns at once.
    virtual void PlaySoundOnce(const QString &path) = 0;
    // Repeats the file without a gap until another sound starts or StopSound; returns at once.
    virtual void PlaySoundLoop(const QString &path) = 0;
    // Plays a working file given by its bare name ("3.wav", found in the program folder) right
    // behind the one of the PlaySoundWait before, without a gap, while that has not been heard
    // to its end; otherwise in place of what plays. Returns at once.
    virtual void PlaySoundWait(const QString &bareName) = 0;
    // Calls heard once, from the event loop, when the sounds of PlaySoundWait have been heard
    // to their end or were stopped (at once when none plays). The caller decides how to wait.
    virtual void WhenSoundsHeard(std::function<void()> heard) = 0;
    // Stops the playing sound; nothing audible follows.
    virtual void StopSound() = 0;
};

} // namespace klangor

#include <memory>

namespace klangor {

// The sound service of this machine; resolves bare names in programFolder. Without an audio
// device it stays silent, and no call blocks or fails.
// tellUser hears that nothing can be heard (no sound server, no device, a server that does not
// answer) when a sound is asked for: once per loss, again after sound was back and is lost again.
std::unique_ptr<SoundService>
createSystemSoundService(const QString &programFolder,
                         std::function<void(const UserMessage &)> tellUser = {});

} // namespace klangor
