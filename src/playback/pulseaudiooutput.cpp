#include "playback/pulseaudiooutput.h"

#include <pulse/pulseaudio.h>
#include <utility>

namespace klangor {

namespace {

// What the stream holds ahead of the ear in all, the server's share included, and the
// smallest piece it asks for. Small enough to hear a click within 20 ms; the pieces are
// written on the stream's own thread, which only copies samples.
constexpr pa_usec_t latencyUs = 12000;
constexpr pa_usec_t requestUs = 2000;
// A local server answers in milliseconds; one that does not answer in this time is gone.
constexpr pa_usec_t answerUs = 2 * PA_USEC_PER_SEC;

bool isEnd(pa_context_state_t state)
{
    return state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED;
}

bool isEnd(pa_stream_state_t state)
{
    return state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED;
}

void wake(void *loop)
{
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop *>(loop), 0);
}

} // namespace

PulseAudioOutput::PulseAudioOutput(int idleMs) : m_idleMs(idleMs)
{
    m_loop = pa_threaded_mainloop_new();
    if (!m_loop)
        return;
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        pa_threaded_mainloop_free(m_loop);
        m_loop = nullptr;
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    connectLocked();
    pa_threaded_mainloop_unlock(m_loop);
}

PulseAudioOutput::~PulseAudioOutput()
{
    if (!m_loop)
        return;
    pa_threaded_mainloop_lock(m_loop);
    closeStreamLocked(m_stream);
    if (m_context) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
    }
    pa_threaded_mainloop_unlock(m_loop);
    pa_threaded_mainloop_stop(m_loop);
    pa_threaded_mainloop_free(m_loop);
}

// Starts a connection unless one is up or on its way; false when none can be started.
bool PulseAudioOutput::connectLocked()
{
    if (m_context && !isEnd(pa_context_get_state(m_context)))
        return true;
    if (m_context)
        pa_context_unref(m_context);
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "Klangor");
    if (!m_context)
        return false;
    pa_context_set_state_callback(
        m_context, [](pa_context *, void *loop) { wake(loop); }, m_loop);
    // No autospawn: a desktop without a server stays mute rather than gaining one.
    return pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
}

template <typename Done> bool PulseAudioOutput::waitLocked(Done done)
{
    struct Expiry
    {
        pa_threaded_mainloop *loop;
        bool expired = false;
    } expiry{m_loop};
    pa_mainloop_api *api = pa_threaded_mainloop_get_api(m_loop);
    timeval until = {};
    pa_timeval_add(pa_gettimeofday(&until), answerUs);
    pa_time_event *timer = api->time_new(
        api, &until,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *data) {
            auto *e = static_cast<Expiry *>(data);
            e->expired = true;
            wake(e->loop);
        },
        &expiry);
    while (!done() && !expiry.expired)
        pa_threaded_mainloop_wait(m_loop);
    api->time_free(timer);
    if (expiry.expired && !done())
        m_unanswered = true;
    return done();
}

bool PulseAudioOutput::openStreamLocked(const PcmFormat &format)
{
    const pa_sample_spec spec = {PA_SAMPLE_S16LE, static_cast<uint32_t>(format.sampleRate),
                                 static_cast<uint8_t>(format.channels)};
    pa_channel_map map;
    if (!pa_sample_spec_valid(&spec) ||
        !pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_DEFAULT))
        return false;
    m_stream = pa_stream_new(m_context, "Klangor", &spec, &map);
    if (!m_stream)
        return false;
    m_format = format;
    m_written = 0;
    m_silent = 0;
    m_corked = false;
    pa_stream_set_state_callback(
        m_stream, [](pa_stream *, void *loop) { wake(loop); }, m_loop);
    pa_stream_set_write_callback(
        m_stream,
        [](pa_stream *stream, std::size_t bytes, void *self) {
            static_cast<PulseAudioOutput *>(self)->write(stream, bytes);
        },
        this);
    pa_buffer_attr attributes;
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = static_cast<uint32_t>(pa_usec_to_bytes(latencyUs, &spec));
    // Playing starts with the first piece: the server's first request can be smaller than the
    // default start threshold, and the stream would wait for data it never asks for.
    attributes.minreq = static_cast<uint32_t>(pa_usec_to_bytes(requestUs, &spec));
    attributes.prebuf = attributes.minreq;
    attributes.fragsize = static_cast<uint32_t>(-1);
    // The server sizes its own buffer to the latency asked for; the clock is interpolated
    // between its reports, so heardPosition is exact to a millisecond.
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_ADJUST_LATENCY | PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE);
    if (pa_stream_connect_playback(m_stream, nullptr, &attributes, flags, nullptr, nullptr) < 0)
        return false;
    return waitLocked([this] {
               const pa_stream_state_t state = pa_stream_get_state(m_stream);
               return state == PA_STREAM_READY || isEnd(state);
           }) &&
           pa_stream_get_state(m_stream) == PA_STREAM_READY;
}

void PulseAudioOutput::closeStreamLocked(pa_stream *&stream)
{
    if (!stream)
        return;
    // No callback of the stream runs after this: they all run under the loop's lock.
    pa_stream_set_write_callback(stream, nullptr, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_disconnect(stream);
    pa_stream_unref(stream);
    stream = nullptr;
}

bool PulseAudioOutput::start(FrameSource &source, const PcmFormat &format)
{
    if (!m_loop)
        return false;
    pa_threaded_mainloop_lock(m_loop);
    const bool ready = [&] {
        if (m_stream && m_format == format && pa_stream_get_state(m_stream) == PA_STREAM_READY) {
            m_source = &source;
            if (m_corked) {
                m_corked = false;
                m_silent = 0;
                pa_operation *uncork = pa_stream_cork(m_stream, 0, nullptr, nullptr);
                if (uncork)
                    pa_operation_unref(uncork);
            }
            return true;
        }
        if (m_unanswered || !connectLocked() || !waitLocked([this] {
                const pa_context_state_t state = pa_context_get_state(m_context);
                return state == PA_CONTEXT_READY || isEnd(state);
            }) ||
            pa_context_get_state(m_context) != PA_CONTEXT_READY) {
            closeStreamLocked(m_stream);
            return false;
        }
        m_source = &source;
        pa_stream *previous = std::exchange(m_stream, nullptr);
        const bool opened = openStreamLocked(format);
        // The old stream goes only now: a server whose last stream is gone may fall back to
        // long blocks (a null sink to two seconds) and start the next stream that late.
        closeStreamLocked(previous);
        if (!opened)
            closeStreamLocked(m_stream);
        return opened;
    }();
    pa_threaded_mainloop_unlock(m_loop);
    return ready;
}

qint64 PulseAudioOutput::heardPosition()
{
    if (!m_loop)
        return 0;
    pa_threaded_mainloop_lock(m_loop);
    pa_usec_t heard = 0;
    if (m_stream && pa_stream_get_time(m_stream, &heard) < 0)
        heard = 0;
    const qint64 position =
        static_cast<qint64>(heard * pa_usec_t(m_format.sampleRate) / PA_USEC_PER_SEC);
    pa_threaded_mainloop_unlock(m_loop);
    return position;
}

// On the loop's thread, with its lock held.
void PulseAudioOutput::write(pa_stream *stream, std::size_t bytes)
{
    if (stream != m_stream)
        return; // a stream being replaced

    const auto frameBytes = static_cast<std::size_t>(2 * m_format.channels);
    void *buffer = nullptr;
    std::size_t size = bytes;
    if (!m_source || pa_stream_begin_write(m_stream, &buffer, &size) < 0 || !buffer)
        return;
    const auto frames = static_cast<qint64>(std::min(size, bytes) / frameBytes);
    if (frames == 0) {
        pa_stream_cancel_write(m_stream);
        return;
    }
    const bool audible =
        m_source->read(static_cast<qint16 *>(buffer), frames, m_format.channels, m_written);
    pa_stream_write(m_stream, buffer, static_cast<std::size_t>(frames) * frameBytes, nullptr, 0,
                    PA_SEEK_RELATIVE);
    m_written += frames;
    m_silent = audible ? 0 : m_silent + frames;
    if (!m_corked && m_silent * 1000 > qint64(m_idleMs) * m_format.sampleRate) {
        m_corked = true;
        pa_operation *cork = pa_stream_cork(m_stream, 1, nullptr, nullptr);
        if (cork)
            pa_operation_unref(cork);
    }
}

} // namespace klangor
