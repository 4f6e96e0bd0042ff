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
    // Plays a working file given by its bare name ("3.wav", found in the program folder) and
    // returns when it has ended; the next sound may follow without a gap.
    virtual void PlaySoundWait(const QString &bareName) = 0;
    // After a group's last PlaySoundWait: returns once that sound has been heard to its end,
    // holding the user's input meanwhile.
    virtual void WaitUntilHeard() = 0;
    // Stops the playing sound; nothing audible follows.
    virtual void StopSound() = 0;
};

} // namespace klangor

#include <memory>

namespace klangor {

// The sound service of this machine; resolves bare names in programFolder. Without an audio
// device it stays silent, and no call blocks or fails.
// tellUser hears once per run that nothing can be heard (no sound server, no device).
std::unique_ptr<SoundService>
createSystemSoundService(const QString &programFolder,
                         std::function<void(const UserMessage &)> tellUser = {});

} // namespace klangor
