#include "playback/qtaudiooutput.h"

#include <algorithm>
#include <QAudioFormat>
#include <QAudioSink>

namespace klangor {

namespace {

QAudioFormat int16Format(const PcmFormat &format)
{
    QAudioFormat audioFormat;
    audioFormat.setSampleRate(format.sampleRate);
    audioFormat.setChannelCount(format.channels);
    audioFormat.setSampleFormat(QAudioFormat::Int16);
    return audioFormat;
}

} // namespace

QtAudioOutput::QtAudioOutput(QAudioDevice device, int bufferMilliseconds)
    : m_device(std::move(device)), m_bufferMilliseconds(bufferMilliseconds)
{}

QtAudioOutput::~QtAudioOutput()
{
    if (m_sink)
        m_sink->stop();
}

PcmFormat QtAudioOutput::bestFormat(const PcmFormat &wanted) const
{
    if (m_device.isFormatSupported(int16Format(wanted)))
        return wanted;
    const QAudioFormat preferred = m_device.preferredFormat();
    return {preferred.sampleRate() > 0 ? preferred.sampleRate() : 44100,
            std::clamp(preferred.channelCount(), 1, 2)};
}

bool QtAudioOutput::open(const PcmFormat &format)
{
    close();
    m_format = format;
    m_sink = std::make_unique<QAudioSink>(m_device, int16Format(format));
    m_sink->setBufferSize(bytesPerFrame() * format.sampleRate * m_bufferMilliseconds / 1000);
    m_io = m_sink->start();
    if (!m_io || m_sink->error() != QAudio::NoError) {
        close();
        return false;
    }
    // The backend reports the buffer it really got once the stream is open.
    m_capacityFrames = std::max<qint64>(1, m_sink->bufferSize() / bytesPerFrame());
    return true;
}

void QtAudioOutput::close()
{
    m_io = nullptr;
    m_capacityFrames = 0;
    if (!m_sink)
        return;
    // Stopping drops what the stream still holds. The sink spins the event loop while it is
    // destroyed, so it goes once the engine has left its current step.
    m_sink->stop();
    m_sink.release()->deleteLater();
}

bool QtAudioOutput::hasFailed() const
{
    if (!m_sink)
        return false;
    const QAudio::Error error = m_sink->error();
    return error == QAudio::OpenError || error == QAudio::IOError || error == QAudio::FatalError;
}

qint64 QtAudioOutput::framesFree()
{
    if (!m_sink || !m_io)
        return 0;
    return m_sink->bytesFree() / bytesPerFrame();
}

qint64 QtAudioOutput::write(const qint16 *samples, qint64 frames)
{
    if (!m_io || frames <= 0)
        return 0;
    const qint64 written =
        m_io->write(reinterpret_cast<const char *>(samples), frames * bytesPerFrame());
    return std::max<qint64>(0, written) / bytesPerFrame();
}

} // namespace klangor
