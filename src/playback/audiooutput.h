#pragma once

#include "playback/pcmsound.h"

namespace klangor {

// Where the engine pushes its frames: a sound device, or a recorder in the tests. Used only
// from the engine's worker thread.
class AudioOutput
{
public:
    virtual ~AudioOutput() = default;

    // The format to open for a sound of the given format; the same one where it is taken.
    virtual PcmFormat bestFormat(const PcmFormat &wanted) const = 0;
    // Opens afresh; whatever an earlier opening still held is dropped unheard.
    virtual bool open(const PcmFormat &format) = 0;
    // Drops what is still held, at once.
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    virtual PcmFormat format() const = 0;
    // True when the open output has broken down and takes nothing any more.
    virtual bool hasFailed() const = 0;

    // Frames the output takes now; frames it holds when full.
    virtual qint64 framesFree() = 0;
    virtual qint64 capacityFrames() const = 0;
    virtual qint64 write(const qint16 *samples, qint64 frames) = 0;
};

} // namespace klangor
