#include "fakeaudiooutput.h"

#include <algorithm>
#include <QDeadlineTimer>
#include <QThread>

namespace klangor::test {

std::vector<qint16> OutputRecording::lastSegment() const
{
    QMutexLocker lock(&mutex);
    return segments.empty() ? std::vector<qint16>{} : segments.back();
}

std::size_t OutputRecording::openings() const
{
    QMutexLocker lock(&mutex);
    return segments.size();
}

qint64 OutputRecording::totalWrites() const
{
    QMutexLocker lock(&mutex);
    return writes;
}

int OutputRecording::underrunCount() const
{
    QMutexLocker lock(&mutex);
    return underruns;
}

int OutputRecording::closeCount() const
{
    QMutexLocker lock(&mutex);
    return closes;
}

FakeAudioOutput::FakeAudioOutput(std::shared_ptr<OutputRecording> recording, Options options)
    : m_recording(std::move(recording)), m_options(std::move(options))
{}

PcmFormat FakeAudioOutput::bestFormat(const PcmFormat &wanted) const
{
    if (m_options.supported.empty() ||
        std::find(m_options.supported.begin(), m_options.supported.end(), wanted) !=
            m_options.supported.end())
        return wanted;
    return m_options.supported.front();
}

bool FakeAudioOutput::open(const PcmFormat &format)
{
    close();
    if (m_options.failsToOpen)
        return false;
    QMutexLocker lock(&m_recording->mutex);
    m_recording->segments.emplace_back();
    m_recording->formats.push_back(format);
    m_format = format;
    m_open = true;
    m_clock.start();
    m_played = 0;
    m_written = 0;
    return true;
}

void FakeAudioOutput::close()
{
    if (!m_open)
        return;
    m_open = false;
    QMutexLocker lock(&m_recording->mutex);
    ++m_recording->closes;
}

void FakeAudioOutput::advance()
{
    if (m_options.stalled)
        return;
    const double elapsed = static_cast<double>(m_clock.nsecsElapsed()) / 1e9;
    m_clock.start();
    m_played = std::min(static_cast<double>(m_written),
                        m_played + elapsed * m_format.sampleRate * m_options.speed);
}

qint64 FakeAudioOutput::framesFree()
{
    if (!m_open)
        return 0;
    advance();
    const auto queued = m_written - static_cast<qint64>(m_played);
    return std::max<qint64>(0, m_options.capacityFrames - queued);
}

qint64 FakeAudioOutput::write(const qint16 *samples, qint64 frames)
{
    if (!m_open)
        return 0;
    const qint64 free = framesFree();
    frames = std::min(frames, free);
    QMutexLocker lock(&m_recording->mutex);
    if (m_written > 0 && free >= m_options.capacityFrames)
        ++m_recording->underruns;
    auto &segment = m_recording->segments.back();
    segment.insert(segment.end(), samples, samples + frames * m_format.channels);
    ++m_recording->writes;
    m_written += frames;
    return frames;
}

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(2);
    }
    return true;
}

} // namespace klangor::test
