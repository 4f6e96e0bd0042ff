#pragma once

#include "playback/audiooutput.h"

#include <memory>
#include <QIODevice>
#include <QTimer>
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

// What the fake output took: one segment per start, in order.
struct OutputRecording
{
    std::vector<std::vector<qint16>> segments;
    bool pulling = false;

    std::size_t lastSize() const { return segments.empty() ? 0 : segments.back().size(); }
};

// Pulls like QAudioSink: a chunk per turn of the event loop and, after an empty read, again
// only once the source emits readyRead. Records every sample it takes.
class FakeAudioOutput final : public AudioOutput
{
public:
    explicit FakeAudioOutput(OutputRecording &recording, bool opens = true)
        : m_recording(recording), m_opens(opens)
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this] { pull(); });
    }

    bool start(QIODevice *source, const PcmFormat &, int) override
    {
        stop();
        if (!m_opens)
            return false;
        m_recording.segments.emplace_back();
        m_recording.pulling = true;
        m_source = source;
        m_wake =
            QObject::connect(source, &QIODevice::readyRead, &m_timer, [this] { m_timer.start(0); });
        emit source->readyRead();
        return true;
    }
    void stop() override
    {
        m_timer.stop();
        QObject::disconnect(m_wake);
        m_recording.pulling = false;
    }

private:
    void pull()
    {
        qint16 buffer[256];
        const qint64 got = m_source->read(reinterpret_cast<char *>(buffer), sizeof buffer) / 2;
        if (got <= 0)
            m_timer.stop();
        else
            m_recording.segments.back().insert(m_recording.segments.back().end(), buffer,
                                               buffer + got);
    }

    OutputRecording &m_recording;
    bool m_opens;
    QIODevice *m_source = nullptr;
    QTimer m_timer;
    QMetaObject::Connection m_wake;
};

} // namespace klangor::test
