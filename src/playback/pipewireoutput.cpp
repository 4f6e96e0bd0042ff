#include "playback/pipewireoutput.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <pipewire/pipewire.h>
#include <pthread.h>
#include <spa/param/audio/format-utils.h>
#include <utility>

namespace klangor {

namespace {

// The cycle the stream asks the graph for, at any rate: PipeWire runs its whole graph at the
// shortest cycle any stream asks for, and a shorter one than this would double the server's
// work for every program while ours plays. A click waits up to a cycle for the next one; with
// the graph's usual 1024 frames at 48 kHz the playback benchmark heard clicks and stops 22 to
// 26 ms late (95th percentile), with these 11 to 17 ms.
constexpr const char *latency = "512/48000";
// A local server answers in milliseconds; one that does not answer in this time counts as
// gone until it does.
constexpr std::int64_t answerNs = 1000000000;
// How soon a lost server or stream is tried again.
constexpr std::int64_t retryNs = 500000000;
constexpr std::int64_t nsPerSecond = 1000000000;

std::int64_t monotonicNs()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * nsPerSecond + now.tv_nsec;
}

// A node a sound can be heard from: a sink, but not auto_null, the stand-in PipeWire makes
// where it has no output of its own.
bool isSink(const char *type, const spa_dict *props)
{
    const char *kind = props ? spa_dict_lookup(props, PW_KEY_MEDIA_CLASS) : nullptr;
    const char *name = props ? spa_dict_lookup(props, PW_KEY_NODE_NAME) : nullptr;
    return std::strcmp(type, PW_TYPE_INTERFACE_Node) == 0 && kind &&
           std::strcmp(kind, "Audio/Sink") == 0 && !(name && std::strcmp(name, "auto_null") == 0);
}

} // namespace

struct PipeWireOutput::Hooks
{
    spa_hook core = {};
    spa_hook registry = {};
    spa_hook stream = {};
    pw_registry_events registryEvents = {};
    pw_core_events coreEvents = {};
    pw_stream_events streamEvents = {};
};

PipeWireOutput::PipeWireOutput(int idleMs, PcmFormat prepared)
    : m_idleMs(idleMs), m_hooks(std::make_unique<Hooks>()), m_format(prepared)
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

    m_hooks->coreEvents.version = PW_VERSION_CORE_EVENTS;
    m_hooks->coreEvents.error = [](void *self, uint32_t id, int, int res, const char *) {
        if (id == PW_ID_CORE && res == -EPIPE)
            static_cast<PipeWireOutput *>(self)->lostLocked();
    };
    m_hooks->coreEvents.done = [](void *data, uint32_t id, int seq) {
        auto *self = static_cast<PipeWireOutput *>(data);
        if (id == PW_ID_CORE && seq == self->m_listSeq) {
            self->m_listed = true;
            pw_thread_loop_signal(self->m_loop, false);
            self->sinksChangedLocked();
        }
    };
    m_hooks->registryEvents.version = PW_VERSION_REGISTRY_EVENTS;
    m_hooks->registryEvents.global = [](void *data, uint32_t id, uint32_t, const char *type,
                                        uint32_t, const spa_dict *props) {
        if (!isSink(type, props))
            return;
        auto *self = static_cast<PipeWireOutput *>(data);
        self->m_sinks.insert(id);
        self->sinksChangedLocked();
    };
    m_hooks->registryEvents.global_remove = [](void *data, uint32_t id) {
        auto *self = static_cast<PipeWireOutput *>(data);
        if (self->m_sinks.erase(id) > 0)
            self->sinksChangedLocked();
    };
    m_hooks->streamEvents.version = PW_VERSION_STREAM_EVENTS;
    m_hooks->streamEvents.state_changed = [](void *self, pw_stream_state, pw_stream_state state,
                                             const char *) {
        static_cast<PipeWireOutput *>(self)->streamChanged(state);
    };
    m_hooks->streamEvents.process = [](void *self) {
        static_cast<PipeWireOutput *>(self)->process();
    };

    m_loop = pw_thread_loop_new("klangor-pw", nullptr);
    if (!m_loop)
        return;
    // The real-time variant of the client's setup: the thread that fills the stream runs at
    // real-time priority, granted by the kernel or by RealtimeKit, as in PipeWire's own tools.
    m_context = pw_context_new(pw_thread_loop_get_loop(m_loop),
                               pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
    if (!m_context) {
        pw_thread_loop_destroy(std::exchange(m_loop, nullptr));
        return;
    }
    pw_loop *loop = pw_thread_loop_get_loop(m_loop);
    m_retry = pw_loop_add_timer(
        loop,
        [](void *data, uint64_t) {
            auto *self = static_cast<PipeWireOutput *>(data);
            if (self->m_lost || !self->m_core) {
                self->closeStreamLocked();
                self->disconnectLocked();
                self->connectLocked();
            } else if (!self->m_ready) {
                self->closeStreamLocked();
                self->openStreamLocked();
            }
        },
        this);
    m_answer = pw_loop_add_timer(
        loop,
        [](void *self, uint64_t) { static_cast<PipeWireOutput *>(self)->setAudibleLocked(false); },
        this);
    if (pw_thread_loop_start(m_loop) < 0) {
        pw_context_destroy(std::exchange(m_context, nullptr));
        pw_thread_loop_destroy(std::exchange(m_loop, nullptr));
        return;
    }
    pw_thread_loop_lock(m_loop);
    m_playsSound = connectLocked() && hasSinkLocked();
    pw_thread_loop_unlock(m_loop);
}

// Looks through the server's objects for a sink, waiting a moment at most: a local server
// lists them in a millisecond or two, and the window's thread waits here at start-up. A server
// that takes longer is left to libpulse, which PipeWire's PulseAudio server answers as well.
bool PipeWireOutput::hasSinkLocked()
{
    timespec until = {};
    pw_thread_loop_get_time(m_loop, &until, 40 * 1000000LL);
    while (!m_listed && pw_thread_loop_timed_wait_full(m_loop, &until) == 0) {
    }
    return m_listed && !m_sinks.empty();
}

// Without a sink nothing is heard, though the stream plays on (to PipeWire's stand-in).
void PipeWireOutput::sinksChangedLocked()
{
    if (!m_listed)
        return;
    if (m_sinks.empty())
        setAudibleLocked(false);
    else if (m_ready)
        setAudibleLocked(true);
}

void PipeWireOutput::disconnectLocked()
{
    if (!m_core)
        return;
    if (m_registry) {
        spa_hook_remove(&m_hooks->registry);
        pw_proxy_destroy(reinterpret_cast<pw_proxy *>(std::exchange(m_registry, nullptr)));
    }
    spa_hook_remove(&m_hooks->core);
    pw_core_disconnect(std::exchange(m_core, nullptr));
    m_sinks.clear();
    m_listed = false;
}

PipeWireOutput::~PipeWireOutput()
{
    if (!m_loop)
        return;
    pw_thread_loop_lock(m_loop);
    m_listener = nullptr;
    closeStreamLocked();
    disconnectLocked();
    pw_loop *loop = pw_thread_loop_get_loop(m_loop);
    pw_loop_destroy_source(loop, m_retry);
    pw_loop_destroy_source(loop, m_answer);
    pw_thread_loop_unlock(m_loop);
    pw_thread_loop_stop(m_loop);
    pw_context_destroy(m_context);
    pw_thread_loop_destroy(m_loop);
}

void PipeWireOutput::setAudibleListener(std::function<void(bool)> listener)
{
    if (!m_loop) {
        if (listener)
            listener(false);
        return;
    }
    pw_thread_loop_lock(m_loop);
    m_listener = std::move(listener);
    if (m_listener && m_audible) // what is known already
        m_listener(*m_audible);
    pw_thread_loop_unlock(m_loop);
}

void PipeWireOutput::setAudibleLocked(bool audible)
{
    if (m_audible == audible)
        return;
    m_audible = audible;
    if (m_listener)
        m_listener(audible);
}

// A one-shot timer on the loop, due in ns; 0 disarms it.
void PipeWireOutput::arm(spa_source *timer, std::int64_t ns)
{
    timespec value = {static_cast<time_t>(ns / nsPerSecond), static_cast<long>(ns % nsPerSecond)};
    pw_loop_update_timer(pw_thread_loop_get_loop(m_loop), timer, &value, nullptr, false);
}

void PipeWireOutput::retryLater()
{
    arm(m_retry, retryNs);
}

// A server that has not taken the stream by then is reported as gone; it is still waited for.
void PipeWireOutput::expectAnswer()
{
    arm(m_answer, answerNs);
}

// Connects unless a connection is up, and opens the stream on it.
bool PipeWireOutput::connectLocked()
{
    if (m_core)
        return true;
    m_core = pw_context_connect(m_context, nullptr, 0);
    if (!m_core) {
        setAudibleLocked(false);
        retryLater();
        return false;
    }
    m_lost = false;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast" // in PipeWire's macro
    pw_core_add_listener(m_core, &m_hooks->core, &m_hooks->coreEvents, this);
    // The sinks, followed for as long as the connection lasts.
    m_registry = pw_core_get_registry(m_core, PW_VERSION_REGISTRY, 0);
    if (m_registry)
        pw_registry_add_listener(m_registry, &m_hooks->registry, &m_hooks->registryEvents, this);
    m_listSeq = pw_core_sync(m_core, PW_ID_CORE, 0);
#pragma GCC diagnostic pop
    openStreamLocked();
    return true;
}

// The server went away: reported at once, connected anew from the retry timer (nothing of the
// connection may go from inside its own callback).
void PipeWireOutput::lostLocked()
{
    m_lost = true;
    m_ready = false;
    setAudibleLocked(false);
    retryLater();
}

// Opens a stream of m_format. It plays from the start: the sound that waits for it, or silence
// until it pauses.
void PipeWireOutput::openStreamLocked()
{
    const int channels = m_format.channels;
    if (channels < 1 || channels > 8 || m_format.sampleRate < 1) {
        setAudibleLocked(false);
        return;
    }
    m_stream =
        pw_stream_new(m_core, "Klangor",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                                        "Playback", PW_KEY_APP_NAME, "Klangor", PW_KEY_NODE_NAME,
                                        "Klangor", PW_KEY_NODE_LATENCY, latency, nullptr));
    if (!m_stream) {
        setAudibleLocked(false);
        retryLater();
        return;
    }
    {
        const std::lock_guard lock(m_data);
        m_channels = channels;
        m_rate = m_format.sampleRate;
        m_handed = 0;
        // Opened for no sound, it plays silence until it pauses, as after any sound. A paused
        // stream is woken through the server's main loop, and its sink with it: the first
        // click woke four streams at once in the playback benchmark and was heard 7-45 ms late.
        m_silent = 0;
        m_anchorNs = -1;
    }
    pw_stream_add_listener(m_stream, &m_hooks->stream, &m_hooks->streamEvents, this);
    spa_audio_info_raw info = {};
    info.format = SPA_AUDIO_FORMAT_S16;
    info.rate = static_cast<uint32_t>(m_format.sampleRate);
    info.channels = static_cast<uint32_t>(channels);
    if (channels == 1) {
        info.position[0] = SPA_AUDIO_CHANNEL_MONO;
    } else if (channels == 2) {
        info.position[0] = SPA_AUDIO_CHANNEL_FL;
        info.position[1] = SPA_AUDIO_CHANNEL_FR;
    } else {
        info.flags = SPA_AUDIO_FLAG_UNPOSITIONED;
    }
    uint8_t buffer[1024];
    spa_pod_builder builder = {};
    spa_pod_builder_init(&builder, buffer, sizeof(buffer));
    const spa_pod *params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
    m_active = true;
    // Filled on PipeWire's real-time thread in the cycle that plays it: a buffer filled ahead
    // on another thread would be heard a cycle later.
    auto flags = static_cast<pw_stream_flags>(
        PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
    if (pw_stream_connect(m_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, params, 1) < 0) {
        closeStreamLocked();
        setAudibleLocked(false);
        retryLater();
        return;
    }
    expectAnswer();
}

void PipeWireOutput::closeStreamLocked()
{
    m_ready = false;
    if (!m_stream)
        return;
    // The stream leaves the real-time thread in the disconnect; until then process() may run
    // and uses the hook and m_stream. The state it reports on the way out is no loss.
    m_closing = true;
    pw_stream_disconnect(m_stream);
    m_closing = false;
    spa_hook_remove(&m_hooks->stream);
    pw_stream_destroy(m_stream);
    m_stream = nullptr;
}

void PipeWireOutput::streamChanged(int state)
{
    if (m_closing)
        return;
    if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING) {
        if (m_ready)
            return;
        m_ready = true;
        arm(m_answer, 0);
        if (!std::exchange(m_named, true)) // the thread that makes the sound, named so
            pw_loop_invoke(
                pw_data_loop_get_loop(pw_context_get_data_loop(m_context)),
                [](spa_loop *, bool, uint32_t, const void *, size_t, void *) {
                    return pthread_setname_np(pthread_self(), "klangor-sound");
                },
                0, nullptr, 0, false, nullptr);
        setAudibleLocked(!m_listed || !m_sinks.empty());
    } else if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
        // Its sink went away, or the server took it back: another is opened.
        m_ready = false;
        setAudibleLocked(false);
        retryLater();
    }
}

void PipeWireOutput::setActiveLocked(bool active)
{
    {
        const std::lock_guard lock(m_data);
        m_silent = 0;
    }
    if (m_active == active || !m_stream)
        return;
    m_active = active;
    pw_stream_set_active(m_stream, active);
}

// On the loop's thread, asked by the filling thread once the silence has lasted long enough.
void PipeWireOutput::pauseIfIdle()
{
    {
        const std::lock_guard lock(m_data);
        if (m_silent <= qint64(m_idleMs) * m_rate / 1000)
            return; // a sound came meanwhile
    }
    setActiveLocked(false);
}

// On PipeWire's real-time thread, once per cycle of the graph: exactly the frames the graph
// asks for, from the position the stream has reached.
void PipeWireOutput::process()
{
    pw_buffer *buffer = pw_stream_dequeue_buffer(m_stream);
    if (!buffer)
        return;
    spa_data &data = buffer->buffer->datas[0];
    bool pause = false;
    {
        const std::lock_guard lock(m_data);
        const auto stride = static_cast<uint32_t>(2 * m_channels);
        uint64_t frames = data.data ? data.maxsize / stride : 0;
        if (buffer->requested > 0)
            frames = std::min<uint64_t>(frames, buffer->requested);
        const qint64 position = m_handed;
        auto *out = static_cast<qint16 *>(data.data);
        const bool audible = m_source && m_source->read(out, qint64(frames), m_channels, position);
        if (!m_source && frames > 0)
            std::fill(out, out + frames * uint64_t(m_channels), qint16(0));
        m_handed += qint64(frames);
        // When the first of these frames will be heard: the graph's delay to the device after
        // this cycle began, and what the resampler holds back.
        pw_time time = {};
        if (pw_stream_get_time_n(m_stream, &time, sizeof(time)) == 0 && time.now > 0 &&
            time.rate.denom > 0) {
            m_anchor = position;
            m_anchorNs = time.now + time.delay * nsPerSecond * time.rate.num / time.rate.denom +
                         qint64(time.buffered) * nsPerSecond / m_rate;
        }
        const qint64 idle = qint64(m_idleMs) * m_rate / 1000;
        pause = !audible && m_silent <= idle + qint64(frames) && m_silent + qint64(frames) > idle;
        m_silent = audible ? 0 : m_silent + qint64(frames);
        data.chunk->offset = 0;
        data.chunk->stride = int32_t(stride);
        data.chunk->size = uint32_t(frames * stride);
    }
    pw_stream_queue_buffer(m_stream, buffer);
    if (pause)
        pw_loop_invoke(
            pw_thread_loop_get_loop(m_loop),
            [](spa_loop *, bool, uint32_t, const void *, size_t, void *self) {
                static_cast<PipeWireOutput *>(self)->pauseIfIdle();
                return 0;
            },
            0, nullptr, 0, false, this);
}

bool PipeWireOutput::start(FrameSource &source, const PcmFormat &format, qint64)
{
    if (!m_loop)
        return false;
    pw_thread_loop_lock(m_loop);
    const bool kept = m_stream && m_format == format;
    // A stream of the old format would read the new sounds in its own layout and pin them to
    // its own positions: it goes before they are let start.
    if (!kept)
        closeStreamLocked();
    {
        const std::lock_guard lock(m_data);
        m_source = &source;
        m_silent = 0;
    }
    // The sounds not yet begun start at the next frame handed over, which is never before
    // `from`: what was handed over is gone.
    source.restart();
    if (kept) {
        // A stop of a paused stream has nothing to silence and nothing to wake.
        if (m_ready && !source.isEmpty())
            setActiveLocked(true);
    } else {
        m_format = format;
        if (m_core && !m_lost)
            openStreamLocked();
        else
            connectLocked();
    }
    const bool audible = m_audible.value_or(true);
    pw_thread_loop_unlock(m_loop);
    return audible;
}

// From the cycle that took the last frames: where it said they would be heard, moved on by the
// time since. Frames not yet handed over are never heard.
qint64 PipeWireOutput::heardPosition()
{
    const std::lock_guard lock(m_data);
    if (m_anchorNs < 0)
        return 0;
    const qint64 since = monotonicNs() - m_anchorNs;
    return std::clamp<qint64>(m_anchor + since * m_rate / nsPerSecond, 0, m_handed);
}

qint64 PipeWireOutput::replaceablePosition()
{
    const std::lock_guard lock(m_data);
    return m_handed;
}

} // namespace klangor
