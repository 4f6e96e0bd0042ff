#pragma once

#include "playback/audiooutput.h"
#include "playback/priorityinheritingmutex.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

struct pw_context;
struct pw_core;
struct pw_registry;
struct pw_stream;
struct pw_thread_loop;
struct spa_source;

namespace klangor {

// A stream of PipeWire's own protocol that stays open between sounds. PipeWire asks for each
// cycle of its graph what the sink plays next, and the stream hands it over then, straight
// from the source: a new sound or a stop is heard from the next cycle on, and nothing handed
// over is ever taken back. After idleMs of silence the stream goes inactive, and neither the
// program nor the server does any work for it until the next sound. The stream opens in the
// background; a server that is gone, stalls or changes its sink is tried again.
class PipeWireOutput final : public AudioOutput
{
public:
    // Connects to the server at once (a local socket, which answers or refuses at once) and
    // opens a stream of the prepared format, which plays silence until it pauses: a click
    // soon after the start then finds it playing, as any other click does.
    explicit PipeWireOutput(int idleMs = 3000, PcmFormat prepared = {});
    ~PipeWireOutput() override;
    PipeWireOutput(const PipeWireOutput &) = delete;
    PipeWireOutput &operator=(const PipeWireOutput &) = delete;

    // Whether a PipeWire server took the connection in the constructor and had a sink to play
    // to: where PulseAudio plays the sound and PipeWire runs beside it for screen sharing
    // only, it has none, and a stream of PipeWire's would never be heard.
    bool playsSound() const { return m_playsSound; }

    bool start(FrameSource &source, const PcmFormat &format, qint64 from = 0) override;
    qint64 heardPosition() override;
    qint64 replaceablePosition() override;
    void setAudibleListener(std::function<void(bool)> listener) override;

    // Called by PipeWire on its threads.
    struct Hooks;

private:
    bool connectLocked();
    bool hasSinkLocked();
    void sinksChangedLocked();
    void disconnectLocked();
    void lostLocked();
    void openStreamLocked();
    void closeStreamLocked();
    void streamChanged(int state);
    void process();
    void pauseIfIdle();
    void setActiveLocked(bool active);
    void setAudibleLocked(bool audible);
    void retryLater();
    void expectAnswer();
    void arm(spa_source *timer, std::int64_t ns);

    int m_idleMs;
    pw_thread_loop *m_loop = nullptr;
    pw_context *m_context = nullptr;
    pw_core *m_core = nullptr;
    pw_stream *m_stream = nullptr;
    pw_registry *m_registry = nullptr;
    std::set<std::uint32_t> m_sinks; // the server's sinks, by id
    bool m_listed = false;           // m_sinks holds all the server had when it was asked
    int m_listSeq = 0;
    std::unique_ptr<Hooks> m_hooks;
    spa_source *m_retry = nullptr;
    spa_source *m_answer = nullptr;
    bool m_playsSound = false;
    bool m_lost = false;  // the connection broke: it is made anew
    bool m_ready = false; // m_stream is known to the server
    bool m_active = false;
    bool m_named = false;   // the real-time thread carries the program's name
    bool m_closing = false; // m_stream is being taken down
    PcmFormat m_format;     // of m_stream
    std::optional<bool> m_audible;
    std::function<void(bool)> m_listener;

    // Shared with the thread that fills the stream; held for moments only.
    PriorityInheritingMutex m_data;
    FrameSource *m_source = nullptr;
    int m_channels = 1;
    int m_rate = 11025;
    qint64 m_handed = 0;    // frames handed to the graph
    qint64 m_silent = 0;    // frames of silence handed over since the last sound
    qint64 m_anchor = 0;    // a position handed over, heard at m_anchorNs
    qint64 m_anchorNs = -1; // on the monotonic clock; -1 while nothing was handed over
};

} // namespace klangor
