#pragma once

#include "playback/audiooutput.h"

struct pa_context;
struct pa_stream;
struct pa_threaded_mainloop;

namespace klangor {

// A playback stream of the sound server (PulseAudio, or PipeWire's server for its clients)
// that stays open between sounds. It holds only a few milliseconds ahead of the ear, so a
// click is heard at once and Stop silences at once; after idleMs of silence it pauses, and
// then neither the program nor the server does any work until the next sound.
class PulseAudioOutput final : public AudioOutput
{
public:
    // Connects to the server in the background.
    explicit PulseAudioOutput(int idleMs = 3000);
    ~PulseAudioOutput() override;
    PulseAudioOutput(const PulseAudioOutput &) = delete;
    PulseAudioOutput &operator=(const PulseAudioOutput &) = delete;

    bool start(FrameSource &source, const PcmFormat &format) override;
    qint64 heardPosition() override;

private:
    bool connectLocked();
    bool openStreamLocked(const PcmFormat &format);
    void closeStreamLocked(pa_stream *&stream);
    template <typename Done> bool waitLocked(Done done);
    void write(pa_stream *stream, std::size_t bytes);

    int m_idleMs;
    pa_threaded_mainloop *m_loop = nullptr;
    pa_context *m_context = nullptr;
    bool m_unanswered = false; // the server never answered: no more waiting for it this run
    pa_stream *m_stream = nullptr;
    FrameSource *m_source = nullptr;
    PcmFormat m_format;
    qint64 m_written = 0; // frames handed to the stream
    qint64 m_silent = 0;  // frames of silence handed over since the last sound
    bool m_corked = false;
};

} // namespace klangor
