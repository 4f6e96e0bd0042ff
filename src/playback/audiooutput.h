#pragma once

#include "playback/framesource.h"
#include "playback/pcmsound.h"

namespace klangor {

// Plays a FrameSource on a thread of its own: the sound server's stream on this machine, a
// recorder in the tests. The stream stays open while the format stays, so a sound starts
// after the few milliseconds the stream holds ahead, not after a new stream has been set up.
class AudioOutput
{
public:
    virtual ~AudioOutput() = default;

    // Plays the source in the format from now on; a stream of another format is replaced, one
    // that went quiet is woken. Positions count frames from the start of the current stream.
    // False when no stream can be opened.
    virtual bool start(FrameSource &source, const PcmFormat &format) = 0;
    // The position the listener hears at this moment.
    virtual qint64 heardPosition() = 0;
};

} // namespace klangor
