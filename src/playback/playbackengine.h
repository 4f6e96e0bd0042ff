#pragma once

#include "playback/audiooutput.h"
#include "playback/framesource.h"
#include "playback/pcmsound.h"

#include <memory>

namespace klangor {

// Plays one sound at a time: the output pulls the frames from a FrameSource on this thread's
// event loop. Starting a sound drops whatever plays; sounds given to playAndWait one after
// another join without a gap.
class PlaybackEngine
{
public:
    // Without an output the engine stays silent and every call returns at once.
    explicit PlaybackEngine(std::unique_ptr<AudioOutput> output);

    // Drops what plays and starts the sound; returns at once.
    void play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Plays the sound right behind the one of the previous playAndWait (or, after anything
    // else, in its place) and returns once the output has taken its last frame, so that the
    // next one can follow seamlessly. Runs the event loop meanwhile, without user input.
    void playAndWait(std::shared_ptr<const PcmSound> sound);
    // Drops what plays; nothing more is heard.
    void stop();
    // False without an output or once the output refused to start.
    bool isAudible() const { return m_output && !m_refused; }

private:
    FrameSource::Ticket start(std::shared_ptr<const PcmSound> sound, bool loop, int bufferMs);

    std::unique_ptr<AudioOutput> m_output;
    FrameSource m_source;
    PcmFormat m_format;      // what the output was opened with
    bool m_chaining = false; // a group is being played: its next sound joins the stream
    bool m_refused = false;
    FrameSource::Ticket m_lastWait = 0;
};

} // namespace klangor
