#pragma once

#include "playback/audiooutput.h"

#include <memory>
#include <QElapsedTimer>
#include <QTimer>
#include <thread>
#include <vector>

namespace klangor::test {

// A sound whose samples are distinct (a ramp from start), so any dropped, doubled or inserted
// sample shows.
inline std::shared_ptr<const PcmSound> rampSound(qint64 frames, qint16 start, int channels = 1)
{
    auto sound = std::make_shared<PcmSound>();
    sound->format = {11025, channels};
    for (qint64 i = 0; i < frames * channels; ++i)
        sound->samples.push_back(static_cast<qint16>(start + i));
    return sound;
}

// Everything the fake output played, silence included: one entry per stream.
using OutputRecording = std::vector<std::vector<qint16>>;

// Plays in real time on the event loop, however seldom that turns, and the listener hears
// each frame lagMs after it was taken, as from a server's buffer.
class FakeAudioOutput final : public AudioOutput
{
public:
    static constexpr int lagMs = 15;
    std::vector<int> streamRates; // of each entry of the recording

    explicit FakeAudioOutput(OutputRecording &recording, bool opens = true)
        : m_recording(recording), m_opens(opens)
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this] { pull(); });
        m_timer.setTimerType(Qt::PreciseTimer);
    }

    // Reads only what is due, so what it took is all it can no longer replace.
    bool start(FrameSource &source, const PcmFormat &format, qint64 = 0) override
    {
        if (!m_opens) { // as a server that went away: nothing more is read
            m_timer.stop();
            return false;
        }
        source.restart();
        if (!m_source || format != m_format) {
            m_recording.emplace_back();
            streamRates.push_back(format.sampleRate);
            m_clock.start();
        }
        m_source = &source;
        m_format = format;
        m_timer.start(1);
        return true;
    }
    // As a server that goes away or comes back, reported from another thread.
    void setOpens(bool opens)
    {
        m_opens = opens;
        if (m_listener)
            std::thread([this, opens] { m_listener(opens); }).join();
    }
    qint64 replaceablePosition() override { return taken(); }
    void setAudibleListener(std::function<void(bool)> listener) override
    {
        m_listener = std::move(listener);
    }
    qint64 heardPosition() override
    {
        return std::max<qint64>(0, taken() - lagMs * m_format.sampleRate / 1000);
    }

private:
    qint64 taken() const
    {
        return m_recording.empty() ? 0 : qint64(m_recording.back().size()) / m_format.channels;
    }
    void pull()
    {
        std::vector<qint16> &stream = m_recording.back();
        const qint64 at = taken();
        const qint64 frames = m_clock.elapsed() * m_format.sampleRate / 1000 - at;
        if (frames <= 0)
            return;
        stream.resize(stream.size() + std::size_t(frames * m_format.channels));
        m_source->read(&stream[std::size_t(at * m_format.channels)], frames, m_format.channels, at);
    }

    OutputRecording &m_recording;
    bool m_opens;
    std::function<void(bool)> m_listener;
    FrameSource *m_source = nullptr;
    PcmFormat m_format;
    QTimer m_timer;
    QElapsedTimer m_clock;
};

} // namespace klangor::test
