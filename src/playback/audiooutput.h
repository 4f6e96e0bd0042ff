#pragma once

#include "playback/framesource.h"
#include "playback/pcmsound.h"

#include <functional>

namespace klangor {

// Plays a FrameSource on a thread of its own: the sound server's stream on this machine, a
// recorder in the tests. The stream stays open while the format stays, so a sound starts
// after the few milliseconds the server needs, not after a new stream has been set up. No
// call waits for the server.
class AudioOutput
{
public:
    virtual ~AudioOutput() = default;

    // Plays the source in the format from now on: what the source holds replaces what the
    // stream has queued, from stream position `from` or, when that is out of reach, from the
    // earliest position that is not. A stream of another format is replaced, one that went
    // quiet is woken. Positions count frames from the start of the current stream. False
    // while nothing can be heard (no server, or one that does not answer).
    virtual bool start(FrameSource &source, const PcmFormat &format, qint64 from = 0) = 0;
    // The position the listener hears at this moment.
    virtual qint64 heardPosition() = 0;
    // The earliest position start can still replace.
    virtual qint64 replaceablePosition() = 0;
    // Called from the output's thread whenever sound becomes possible (true) or impossible,
    // and at once with what is known already.
    virtual void setAudibleListener(std::function<void(bool)> listener) = 0;
};

} // namespace klangor
