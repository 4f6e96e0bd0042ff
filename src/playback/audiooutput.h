#pragma once

#include "playback/pcmsound.h"

class QIODevice;

namespace klangor {

// What pulls the frames out of the engine's source on the caller's thread: a QAudioSink in
// pull mode, or a recorder in the tests. A source that has nothing gives 0 bytes and emits
// readyRead once it has more again.
class AudioOutput
{
public:
    virtual ~AudioOutput() = default;

    // Drops whatever plays and starts pulling 16-bit frames of the format from source, holding
    // about bufferMs ahead of the ear. False when the output cannot be opened.
    virtual bool start(QIODevice *source, const PcmFormat &format, int bufferMs) = 0;
    // Drops what plays, at once.
    virtual void stop() = 0;
};

} // namespace klangor
