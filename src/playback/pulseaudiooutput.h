#pragma once

#include "playback/audiooutput.h"

#include <optional>

struct pa_context;
struct pa_stream;
struct pa_threaded_mainloop;
struct pa_time_event;

namespace klangor {

// A playback stream of the sound server (PulseAudio, or PipeWire's server for its clients)
// that stays open between sounds. The server holds a quarter of a second of it, so a busy
// machine that keeps the program from writing for a while is not heard; a new sound or a
// stop rewrites what is queued from just ahead of what the sink has taken, so a click is
// still heard at once. After idleMs of silence the stream pauses, and then neither the
// program nor the server does any work until the next sound. The connection and the stream
// open in the background; a server that is gone, stalls or changes its sink is tried again.
class PulseAudioOutput final : public AudioOutput
{
public:
    // Opens a paused stream of the prepared format as soon as the server answers, so that
    // the first sound starts as quickly as any other.
    explicit PulseAudioOutput(int idleMs = 3000, PcmFormat prepared = {});
    ~PulseAudioOutput() override;
    PulseAudioOutput(const PulseAudioOutput &) = delete;
    PulseAudioOutput &operator=(const PulseAudioOutput &) = delete;

    bool start(FrameSource &source, const PcmFormat &format, qint64 from = 0) override;
    qint64 heardPosition() override;
    qint64 replaceablePosition() override;
    void setAudibleListener(std::function<void(bool)> listener) override;

private:
    void connectLocked();
    void contextChanged();
    void openStreamLocked();
    void streamChanged(pa_stream *stream);
    void closeStreamLocked(pa_stream *&stream);
    void write(pa_stream *stream, std::size_t bytes);
    void writeLocked(qint64 position, qint64 frames);
    void rewriteLocked(qint64 from);
    void corkLocked(bool cork);
    qint64 positionLocked(bool replaceable);
    void setAudibleLocked(bool audible);
    void retryLater();
    void expectAnswer();
    void cancelTimer(pa_time_event *&timer);

    int m_idleMs;
    pa_threaded_mainloop *m_loop = nullptr;
    pa_context *m_context = nullptr;
    pa_stream *m_stream = nullptr;   // the stream playing, or the one being opened
    pa_stream *m_previous = nullptr; // the one it replaces, kept until the new one is ready
    pa_time_event *m_retry = nullptr;
    pa_time_event *m_answer = nullptr;
    FrameSource *m_source = nullptr;
    PcmFormat m_format;    // of m_stream
    bool m_wanted = false; // a sound was asked for: a stream opens playing, not paused
    qint64 m_written = 0;  // frames handed to the stream
    qint64 m_silent = 0;   // frames of silence handed over since the last sound
    bool m_corked = false;
    bool m_played = false;   // the stream was ever let play
    bool m_pipewire = false; // PipeWire's server answers
    std::optional<bool> m_audible;
    std::function<void(bool)> m_listener;
};

} // namespace klangor
