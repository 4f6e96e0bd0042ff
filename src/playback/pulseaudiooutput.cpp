#include "playback/pulseaudiooutput.h"

#include "playback/realtime.h"

#include <algorithm>
#include <cstring>
#include <pulse/pulseaudio.h>
#include <utility>
#include <vector>

namespace klangor {

namespace {

// What the server holds for the stream: enough that a writer kept off the processor for a
// good while is never heard. A new sound does not wait behind it; it is written over.
constexpr pa_usec_t queueUs = 250000;
// The smallest piece the server asks for, and with early requests also the sink's share of
// the latency: what a click waits for at least, besides the margin below.
constexpr pa_usec_t requestUs = 5000;
// PipeWire's server makes the piece the cycle its whole graph runs at: one shorter than the
// graph's usual cycle (1024 frames at 48 kHz) would shorten the cycle for every program while
// ours plays, at twice the server's work, and each change makes another program's sound
// skip. Measured with the playback benchmark: with 5 ms pieces another stream skipped 256
// frames 2 to 260 times in 100 s, with these 0 to 6 times in 55 s; clicks are heard about
// 3 ms later.
constexpr pa_usec_t pipewireRequestUs = 21334;
// How far ahead of what the sink has taken a rewrite begins: the time the rewrite needs to
// reach the server. Written any earlier, its start would be lost.
constexpr pa_usec_t rewriteMarginUs = 8000;
// A local server answers in milliseconds; one that does not answer in this time counts as
// gone until it does.
constexpr pa_usec_t answerUs = PA_USEC_PER_SEC;
// Low: below the servers' own threads, above everything that is not real-time.
constexpr int realtimePriority = 5;
// How soon a lost server or stream is tried again.
constexpr pa_usec_t retryUs = PA_USEC_PER_SEC / 2;

bool isEnd(pa_context_state_t state)
{
    return state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED;
}

bool isEnd(pa_stream_state_t state)
{
    return state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED;
}

void forget(pa_operation *operation)
{
    if (operation)
        pa_operation_unref(operation);
}

} // namespace

PulseAudioOutput::PulseAudioOutput(int idleMs, PcmFormat prepared)
    : m_idleMs(idleMs), m_format(prepared)
{
    m_loop = pa_threaded_mainloop_new();
    if (!m_loop)
        return;
    pa_threaded_mainloop_set_name(m_loop, "klangor-sound");
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        pa_threaded_mainloop_free(m_loop);
        m_loop = nullptr;
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    // The sound thread sends every rewrite to the server: on a busy machine it must not wait
    // behind the others for a processor, or the rewrite arrives too late to replace the start.
    pa_mainloop_api_once(
        pa_threaded_mainloop_get_api(m_loop),
        [](pa_mainloop_api *, void *) { makeThreadRealtime(realtimePriority); }, nullptr);
    connectLocked();
    pa_threaded_mainloop_unlock(m_loop);
}

PulseAudioOutput::~PulseAudioOutput()
{
    if (!m_loop)
        return;
    pa_threaded_mainloop_lock(m_loop);
    m_listener = nullptr;
    cancelTimer(m_retry);
    cancelTimer(m_answer);
    closeStreamLocked(m_previous);
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

void PulseAudioOutput::setAudibleListener(std::function<void(bool)> listener)
{
    if (!m_loop) {
        if (listener)
            listener(false);
        return;
    }
    pa_threaded_mainloop_lock(m_loop);
    m_listener = std::move(listener);
    if (m_listener && m_audible) // what is known already
        m_listener(*m_audible);
    pa_threaded_mainloop_unlock(m_loop);
}

void PulseAudioOutput::setAudibleLocked(bool audible)
{
    if (m_audible == audible)
        return;
    m_audible = audible;
    if (m_listener)
        m_listener(audible);
}

void PulseAudioOutput::cancelTimer(pa_time_event *&timer)
{
    if (!timer)
        return;
    pa_mainloop_api *api = pa_threaded_mainloop_get_api(m_loop);
    api->time_free(std::exchange(timer, nullptr));
}

namespace {

// A one-shot timer on the loop that calls a member of the output with the loop's lock held.
pa_time_event *startTimer(pa_threaded_mainloop *loop, pa_usec_t after,
                          void (*fire)(PulseAudioOutput *), PulseAudioOutput *self)
{
    struct Call
    {
        void (*fire)(PulseAudioOutput *);
        PulseAudioOutput *self;
    };
    pa_mainloop_api *api = pa_threaded_mainloop_get_api(loop);
    timeval when = {};
    pa_timeval_add(pa_gettimeofday(&when), after);
    auto *call = new Call{fire, self};
    pa_time_event *event = api->time_new(
        api, &when,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *data) {
            const Call *c = static_cast<Call *>(data);
            c->fire(c->self);
        },
        call);
    api->time_set_destroy(event, [](pa_mainloop_api *, pa_time_event *, void *data) {
        delete static_cast<Call *>(data);
    });
    return event;
}

} // namespace

// Tried again after a while: the connection, or the stream on a connection that is up.
void PulseAudioOutput::retryLater()
{
    if (m_retry)
        return;
    m_retry = startTimer(
        m_loop, retryUs,
        [](PulseAudioOutput *self) {
            self->cancelTimer(self->m_retry);
            if (!self->m_context || pa_context_get_state(self->m_context) != PA_CONTEXT_READY)
                self->connectLocked();
            else if (!self->m_stream)
                self->openStreamLocked();
        },
        this);
}

// A server that has not answered by then is reported as gone; it is still waited for.
void PulseAudioOutput::expectAnswer()
{
    cancelTimer(m_answer);
    m_answer = startTimer(
        m_loop, answerUs,
        [](PulseAudioOutput *self) {
            self->cancelTimer(self->m_answer);
            self->setAudibleLocked(false);
        },
        this);
}

// Starts a connection unless one is up or on its way.
void PulseAudioOutput::connectLocked()
{
    if (m_context && !isEnd(pa_context_get_state(m_context)))
        return;
    if (m_context) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_unref(m_context);
    }
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "Klangor");
    if (!m_context) {
        setAudibleLocked(false);
        return;
    }
    pa_context_set_state_callback(
        m_context,
        [](pa_context *, void *self) { static_cast<PulseAudioOutput *>(self)->contextChanged(); },
        this);
    // No autospawn: a desktop without a server stays mute rather than gaining one.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        setAudibleLocked(false);
        retryLater();
        return;
    }
    expectAnswer();
}

void PulseAudioOutput::contextChanged()
{
    const pa_context_state_t state = pa_context_get_state(m_context);
    if (state == PA_CONTEXT_READY) {
        // Which server answers decides the stream's pieces.
        forget(pa_context_get_server_info(
            m_context,
            [](pa_context *, const pa_server_info *info, void *data) {
                auto *self = static_cast<PulseAudioOutput *>(data);
                self->m_pipewire = info && std::strstr(info->server_name, "PipeWire");
                self->openStreamLocked();
            },
            this));
    } else if (isEnd(state)) {
        cancelTimer(m_answer);
        closeStreamLocked(m_previous);
        closeStreamLocked(m_stream);
        setAudibleLocked(false);
        retryLater();
    }
}

// Opens a stream of m_format, paused unless a sound waits for it.
void PulseAudioOutput::openStreamLocked()
{
    const pa_sample_spec spec = {PA_SAMPLE_S16LE, static_cast<uint32_t>(m_format.sampleRate),
                                 static_cast<uint8_t>(m_format.channels)};
    pa_channel_map map;
    if (!pa_sample_spec_valid(&spec) ||
        !pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_DEFAULT)) {
        setAudibleLocked(false);
        return;
    }
    // The old stream goes only once the new one plays: a server whose last stream is gone
    // may fall back to long blocks (a null sink to two seconds) and start the next one late.
    if (m_stream && pa_stream_get_state(m_stream) == PA_STREAM_READY) {
        closeStreamLocked(m_previous);
        m_previous = std::exchange(m_stream, nullptr);
    }
    closeStreamLocked(m_stream);
    m_stream = pa_stream_new(m_context, "Klangor", &spec, &map);
    if (!m_stream) {
        setAudibleLocked(false);
        return;
    }
    m_written = 0;
    m_silent = 0;
    m_corked = !m_wanted;
    m_played = m_wanted;
    pa_stream_set_state_callback(
        m_stream,
        [](pa_stream *stream, void *self) {
            static_cast<PulseAudioOutput *>(self)->streamChanged(stream);
        },
        this);
    pa_stream_set_write_callback(
        m_stream,
        [](pa_stream *stream, std::size_t bytes, void *self) {
            static_cast<PulseAudioOutput *>(self)->write(stream, bytes);
        },
        this);
    pa_buffer_attr attributes;
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = static_cast<uint32_t>(pa_usec_to_bytes(queueUs, &spec));
    attributes.minreq =
        static_cast<uint32_t>(pa_usec_to_bytes(m_pipewire ? pipewireRequestUs : requestUs, &spec));
    // Playing starts with the first piece: the server's first request can be smaller than the
    // default start threshold, and the stream would wait for data it never asks for.
    attributes.prebuf = attributes.minreq;
    attributes.fragsize = static_cast<uint32_t>(-1);
    // Early requests keep the sink's own buffer at one piece, however much the server holds
    // for the stream; the server reports its position now and then, and the positions are
    // moved on from there by the system clock.
    auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_EARLY_REQUESTS | PA_STREAM_AUTO_TIMING_UPDATE);
    if (m_corked)
        flags = static_cast<pa_stream_flags_t>(flags | PA_STREAM_START_CORKED);
    if (pa_stream_connect_playback(m_stream, nullptr, &attributes, flags, nullptr, nullptr) < 0) {
        closeStreamLocked(m_stream);
        setAudibleLocked(false);
        retryLater();
        return;
    }
    expectAnswer();
}

void PulseAudioOutput::streamChanged(pa_stream *stream)
{
    if (stream != m_stream)
        return;
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (state == PA_STREAM_READY) {
        cancelTimer(m_answer);
        closeStreamLocked(m_previous);
        // Opened paused, and a sound came while it was being opened.
        if (m_wanted && m_corked) {
            rewriteLocked(0);
            corkLocked(false);
        }
        setAudibleLocked(true);
    } else if (isEnd(state)) {
        // Its sink went away, or the server took it back: another is opened on the default.
        closeStreamLocked(m_stream);
        setAudibleLocked(false);
        retryLater();
    }
}

void PulseAudioOutput::closeStreamLocked(pa_stream *&stream)
{
    if (!stream)
        return;
    // No callback of ours runs after this: they all run under the loop's lock.
    pa_stream_set_write_callback(stream, nullptr, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    if (pa_stream_get_state(stream) == PA_STREAM_CREATING) {
        // The server is still setting it up and cannot take it back yet: once it has, it goes.
        pa_stream_set_state_callback(
            stream,
            [](pa_stream *s, void *) {
                const pa_stream_state_t state = pa_stream_get_state(s);
                if (state == PA_STREAM_READY)
                    pa_stream_disconnect(s);
                else if (isEnd(state)) {
                    pa_stream_set_state_callback(s, nullptr, nullptr);
                    pa_stream_unref(s);
                }
            },
            nullptr);
    } else {
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
    stream = nullptr;
}

bool PulseAudioOutput::start(FrameSource &source, const PcmFormat &format, qint64 from)
{
    if (!m_loop)
        return false;
    pa_threaded_mainloop_lock(m_loop);
    m_source = &source;
    m_wanted = true;
    if (m_stream && m_format == format && m_corked && source.isEmpty()) {
        source.restart(); // a stop of a paused stream: nothing to silence, nothing to wake
    } else if (m_stream && m_format == format && pa_stream_get_state(m_stream) == PA_STREAM_READY) {
        // Rewritten while still paused: the clock is known then, and stands still.
        rewriteLocked(from);
        corkLocked(false);
    } else {
        // The new stream plays the source from its first position on.
        source.restart();
        if (!m_stream || m_format != format) {
            m_format = format;
            if (m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY)
                openStreamLocked();
            else
                connectLocked();
        }
    }
    const bool audible = m_audible.value_or(true);
    pa_threaded_mainloop_unlock(m_loop);
    return audible;
}

qint64 PulseAudioOutput::heardPosition()
{
    if (!m_loop)
        return 0;
    pa_threaded_mainloop_lock(m_loop);
    const qint64 position = positionLocked(false);
    pa_threaded_mainloop_unlock(m_loop);
    return position;
}

qint64 PulseAudioOutput::replaceablePosition()
{
    if (!m_loop)
        return 0;
    pa_threaded_mainloop_lock(m_loop);
    const qint64 position = positionLocked(true);
    pa_threaded_mainloop_unlock(m_loop);
    return position;
}

// From the server's last report: what the sink had taken from the stream then, moved on by
// the time since while it plays. What is heard lies the sink's buffer behind that; what can
// still be replaced lies the way to the server and a margin ahead of it. Not
// libpulse's interpolated clock: it runs on while a stream that never played is paused, and
// never goes back.
qint64 PulseAudioOutput::positionLocked(bool replaceable)
{
    const pa_timing_info *timing = m_stream ? pa_stream_get_timing_info(m_stream) : nullptr;
    if (!timing || timing->read_index_corrupt)
        return replaceable && m_played ? m_written : 0;
    const bool playing = timing->playing && !m_corked;
    auto us = static_cast<qint64>(
        pa_bytes_to_usec(static_cast<uint64_t>(std::max<int64_t>(0, timing->read_index)),
                         pa_stream_get_sample_spec(m_stream)));
    if (playing)
        us += static_cast<qint64>(pa_timeval_age(&timing->timestamp));
    if (replaceable)
        us += static_cast<qint64>(rewriteMarginUs + timing->transport_usec);
    else if (playing) // PipeWire's server reports its position half a cycle early (measured)
        us = std::max<qint64>(0, us + static_cast<qint64>(timing->transport_usec) -
                                     static_cast<qint64>(timing->sink_usec) -
                                     (m_pipewire ? static_cast<qint64>(pipewireRequestUs / 2) : 0));
    const qint64 frames = us * m_format.sampleRate / qint64(PA_USEC_PER_SEC);
    return replaceable ? std::min(m_written, frames) : frames;
}

void PulseAudioOutput::corkLocked(bool cork)
{
    if (m_corked == cork)
        return;
    m_corked = cork;
    m_silent = 0;
    m_played = m_played || !cork;
    forget(pa_stream_cork(m_stream, cork ? 1 : 0, nullptr, nullptr));
}

// Writes what is queued again from `from`, or from the earliest position still in reach.
void PulseAudioOutput::rewriteLocked(qint64 from)
{
    const qint64 position = std::min(std::max(from, positionLocked(true)), m_written);
    m_source->restart();
    if (position < m_written)
        writeLocked(position, m_written - position);
}

// Frames from position on, read from the source; behind what was written they replace it.
void PulseAudioOutput::writeLocked(qint64 position, qint64 frames)
{
    const auto channels = m_format.channels;
    std::vector<qint16> buffer(static_cast<std::size_t>(frames * channels));
    const bool audible = m_source && m_source->read(buffer.data(), frames, channels, position);
    const auto bytes = buffer.size() * sizeof(qint16);
    if (position == m_written)
        pa_stream_write(m_stream, buffer.data(), bytes, nullptr, 0, PA_SEEK_RELATIVE);
    else
        pa_stream_write(m_stream, buffer.data(), bytes, nullptr,
                        static_cast<int64_t>(position) * 2 * channels, PA_SEEK_ABSOLUTE);
    m_written = std::max(m_written, position + frames);
    m_silent = audible ? 0 : m_silent + frames;
    if (m_silent * 1000 > qint64(m_idleMs) * m_format.sampleRate)
        corkLocked(true);
}

// On the loop's thread, with its lock held.
void PulseAudioOutput::write(pa_stream *stream, std::size_t bytes)
{
    if (stream != m_stream)
        return; // a stream being replaced
    const auto frames = static_cast<qint64>(bytes / std::size_t(2 * m_format.channels));
    if (frames > 0)
        writeLocked(m_written, frames);
}

} // namespace klangor
