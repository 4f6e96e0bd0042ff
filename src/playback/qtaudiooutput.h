#pragma once

#include "playback/audiooutput.h"

#include <memory>
#include <QAudioDevice>

class QAudioSink;
class QIODevice;

namespace klangor {

// A QAudioSink in push mode. Lives on the thread that uses it; the sink's timers need that
// thread's event loop.
class QtAudioOutput final : public AudioOutput
{
public:
    QtAudioOutput(QAudioDevice device, int bufferMilliseconds);
    ~QtAudioOutput() override;

    PcmFormat bestFormat(const PcmFormat &wanted) const override;
    bool open(const PcmFormat &format) override;
    void close() override;
    bool isOpen() const override { return m_io != nullptr; }
    PcmFormat format() const override { return m_format; }
    bool hasFailed() const override;
    qint64 framesFree() override;
    qint64 capacityFrames() const override { return m_capacityFrames; }
    qint64 write(const qint16 *samples, qint64 frames) override;

private:
    qint64 bytesPerFrame() const { return 2 * static_cast<qint64>(m_format.channels); }

    QAudioDevice m_device;
    int m_bufferMilliseconds;
    std::unique_ptr<QAudioSink> m_sink;
    QIODevice *m_io = nullptr;
    PcmFormat m_format;
    qint64 m_capacityFrames = 0;
};

} // namespace klangor
