#include "playback/playbackengine.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <utility>

namespace klangor {

namespace {

// playAndWait returns while this much of its sound is still to be read: time enough to
// decode the group's next file and queue it behind.
constexpr qint64 leadMs = 60;
// Waits give up this long after the sound should have been heard (a stalled output).
constexpr qint64 waitMarginMs = 2000;

} // namespace

PlaybackEngine::PlaybackEngine(std::unique_ptr<AudioOutput> output) : m_output(std::move(output)) {}

FrameSource::Ticket PlaybackEngine::start(std::shared_ptr<const PcmSound> sound, bool loop)
{
    m_chaining = false;
    ++m_generation;
    m_source.clear();
    if (!sound)
        return 0;
    m_format = sound->format;
    m_refused = !m_output->start(m_source, m_format);
    return m_refused ? 0 : m_source.enqueue(std::move(sound), loop);
}

void PlaybackEngine::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    if (m_output)
        start(std::move(sound), loop);
}

void PlaybackEngine::waitFrames(const std::function<qint64()> &framesToWait, qint64 budgetMs)
{
    QElapsedTimer clock;
    clock.start();
    for (qint64 frames = framesToWait(); frames > 0 && clock.elapsed() < budgetMs;
         frames = framesToWait()) {
        QEventLoop loop;
        QTimer::singleShot(std::max<qint64>(1, frames * 1000 / m_format.sampleRate),
                           Qt::PreciseTimer, &loop, &QEventLoop::quit);
        // The window handles no clicks meanwhile; they wait until the sound is over.
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
}

void PlaybackEngine::holdInputUntilHeard(FrameSource::Ticket ticket, quint64 generation,
                                         qint64 budgetMs)
{
    waitFrames(
        [&]() -> qint64 {
            if (generation != m_generation)
                return 0; // dropped: nothing of it is heard any more
            const FrameSource::Progress progress = m_source.progress(ticket);
            if (!progress.endPosition)
                return progress.framesLeft;
            return *progress.endPosition - m_output->heardPosition();
        },
        budgetMs);
}

void PlaybackEngine::playAndWait(std::shared_ptr<const PcmSound> sound)
{
    if (!m_output || !sound)
        return;
    const qint64 budgetMs = sound->durationMilliseconds() + waitMarginMs;
    FrameSource::Ticket ticket = 0;
    // A group's sounds share the working files' format; one of another format starts afresh.
    if (m_chaining && sound->format == m_format) {
        ticket = m_source.enqueue(std::move(sound));
        m_refused = !m_output->start(m_source, m_format); // wakes a stream gone quiet
    } else {
        ticket = start(std::move(sound), false);
        m_chaining = !m_refused;
    }
    // A stream that failed to start plays nothing that could be waited for.
    if (m_refused) {
        stop();
        return;
    }
    m_lastWait = ticket;
    const quint64 generation = m_generation;
    const qint64 leadFrames = leadMs * m_format.sampleRate / 1000;
    waitFrames(
        [&] {
            return generation == m_generation ? m_source.progress(ticket).framesLeft - leadFrames
                                              : 0;
        },
        budgetMs);
    // The group is over once the caller is back in the event loop without another sound.
    QTimer::singleShot(0, &m_deferred, [this, ticket, generation, budgetMs] {
        if (m_lastWait != ticket || generation != m_generation)
            return;
        m_chaining = false;
        holdInputUntilHeard(ticket, generation, budgetMs);
    });
}

void PlaybackEngine::waitUntilHeard()
{
    if (!m_output || !m_chaining)
        return;
    m_chaining = false;
    const FrameSource::Ticket ticket = std::exchange(m_lastWait, 0); // nothing left for later
    holdInputUntilHeard(ticket, m_generation, leadMs + waitMarginMs);
}

void PlaybackEngine::stop()
{
    if (!m_output)
        return;
    m_chaining = false;
    ++m_generation;
    m_source.clear();
}

} // namespace klangor
