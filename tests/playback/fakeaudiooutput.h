#pragma once

#include "playback/audiooutput.h"

#include <functional>
#include <memory>
#include <QElapsedTimer>
#include <QMutex>
#include <vector>

namespace klangor::test {

// What the fake output heard: one segment per opening, in order.
struct OutputRecording
{
    mutable QMutex mutex;
    std::vector<std::vector<qint16>> segments;
    std::vector<PcmFormat> formats;
    int closes = 0;
    qint64 writes = 0;
    int underruns = 0; // frames arrived after the buffer had run empty

    std::vector<qint16> lastSegment() const;
    std::size_t openings() const;
    qint64 totalWrites() const;
    int underrunCount() const;
    int closeCount() const;
};

// An output that plays in simulated real time (speed times faster): its buffer empties at
// the format's rate and takes new frames as room comes free. Records every written frame.
class FakeAudioOutput final : public AudioOutput
{
public:
    struct Options
    {
        qint64 capacityFrames = 1102; // about 100 ms at 11025 Hz
        double speed = 4.0;
        bool stalled = false; // never takes a frame
        bool failsToOpen = false;
        std::vector<PcmFormat> supported; // empty: every format
    };

    FakeAudioOutput(std::shared_ptr<OutputRecording> recording, Options options);

    PcmFormat bestFormat(const PcmFormat &wanted) const override;
    bool open(const PcmFormat &format) override;
    void close() override;
    bool isOpen() const override { return m_open; }
    PcmFormat format() const override { return m_format; }
    bool hasFailed() const override { return false; }
    qint64 framesFree() override;
    qint64 capacityFrames() const override { return m_options.capacityFrames; }
    qint64 write(const qint16 *samples, qint64 frames) override;

private:
    void advance();

    std::shared_ptr<OutputRecording> m_recording;
    Options m_options;
    bool m_open = false;
    PcmFormat m_format;
    QElapsedTimer m_clock;
    double m_played = 0;
    qint64 m_written = 0;
};

// Polls until the condition holds or the time is up; true when it held.
bool waitUntil(const std::function<bool()> &condition, int timeoutMs);

} // namespace klangor::test
