#include "playback/playbackengine.h"

#include <algorithm>
#include <utility>

namespace klangor {

namespace {

// A sound of another format starts afresh once this little of the group is left to be read.
constexpr qint64 leadMs = 60;
// A group is given up this long after it should have been heard (a stalled output).
constexpr qint64 waitMarginMs = 2000;
// A group's next sound joins the last one only when the output can still place it there with
// this much to spare; otherwise it starts afresh.
constexpr qint64 joinSpareMs = 3;

} // namespace

PlaybackEngine::PlaybackEngine(std::unique_ptr<AudioOutput> output) : m_output(std::move(output))
{
    m_wake.setSingleShot(true);
    m_wake.setTimerType(Qt::PreciseTimer);
    m_wake.callOnTimeout([this] { advanceGroup(); });
    if (!m_output)
        return;
    // From the output's thread to this one; the context goes with the engine.
    m_output->setAudibleListener([this](bool audible) {
        QMetaObject::invokeMethod(
            &m_deferred,
            [this, audible] {
                m_refused = !audible;
                if (!audible && m_inGroup)
                    stop(); // nothing of it is heard: no one waits for it
                if (m_audibleChanged)
                    m_audibleChanged(audible);
            },
            Qt::QueuedConnection);
    });
}

PlaybackEngine::~PlaybackEngine()
{
    // The output's thread is gone before anything it reports to.
    m_output.reset();
}

FrameSource::Ticket PlaybackEngine::start(std::shared_ptr<const PcmSound> sound, bool loop)
{
    m_source.clear();
    if (!sound)
        return 0;
    m_format = sound->format;
    m_started = true;
    const FrameSource::Ticket ticket = m_source.enqueue(std::move(sound), loop);
    m_refused = !m_output->start(m_source, m_format);
    if (m_refused)
        m_source.clear();
    return m_refused ? 0 : ticket;
}

void PlaybackEngine::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    if (!m_output)
        return;
    endGroup();
    start(std::move(sound), loop);
}

void PlaybackEngine::playInGroup(std::shared_ptr<const PcmSound> sound)
{
    if (!m_output || !sound)
        return;
    if (!m_inGroup) {
        endGroup(); // whoever waited on an earlier group hears of its end
        m_inGroup = true;
        m_groupClock.start();
        m_groupBudgetMs = waitMarginMs;
    }
    m_groupBudgetMs += sound->durationMilliseconds();
    m_waiting.push_back(std::move(sound));
    advanceGroup();
}

void PlaybackEngine::advanceGroup()
{
    if (!m_inGroup)
        return;
    const qint64 leadFrames = leadMs * m_format.sampleRate / 1000;
    // Whether the output can still place a sound at the position.
    const auto joinable = [this](qint64 at) {
        return at >= m_output->replaceablePosition() + joinSpareMs * m_format.sampleRate / 1000;
    };
    while (!m_waiting.empty()) {
        std::shared_ptr<const PcmSound> &next = m_waiting.front();
        const FrameSource::Progress last = m_source.progress(m_lastInGroup);
        if (m_lastInGroup != 0 && next->format == m_format &&
            (!last.endPosition || joinable(*last.endPosition))) {
            // Queued behind a sound read to its end, known before or only now: the stream has
            // silence there, written over now, or the sound starts afresh where that is out of
            // reach. Only the queue knows which: the reader may end the last sound at any moment.
            std::optional<qint64> end;
            m_lastInGroup = m_source.enqueue(next, false, &end);
            if (end && joinable(*end))
                m_refused = !m_output->start(m_source, m_format, *end);
            else if (end)
                m_lastInGroup = start(next, false);
        } else if (m_lastInGroup != 0 && m_source.progress(m_lastInGroup).framesLeft > leadFrames) {
            wakeAfter(m_source.progress(m_lastInGroup).framesLeft - leadFrames);
            return;
        } else {
            m_lastInGroup = start(next, false);
        }
        m_waiting.pop_front();
        // A stream that failed to start plays nothing that could be waited for.
        if (m_refused) {
            stop();
            return;
        }
    }
    const qint64 left = framesUntilHeard();
    if (left > 0 && m_groupClock.elapsed() < m_groupBudgetMs)
        wakeAfter(left);
    else
        endGroup();
}

qint64 PlaybackEngine::framesUntilHeard()
{
    const FrameSource::Progress progress = m_source.progress(m_lastInGroup);
    if (!progress.endPosition)
        return progress.framesLeft;
    return *progress.endPosition - m_output->heardPosition();
}

void PlaybackEngine::wakeAfter(qint64 frames)
{
    m_wake.start(static_cast<int>(std::max<qint64>(1, frames * 1000 / m_format.sampleRate)));
}

void PlaybackEngine::whenHeard(std::function<void()> heard)
{
    m_heard.push_back(std::move(heard));
    if (!m_inGroup)
        endGroup();
}

void PlaybackEngine::endGroup()
{
    m_inGroup = false;
    m_waiting.clear();
    m_lastInGroup = 0;
    m_wake.stop();
    // From the event loop, never from inside the call that ended the group.
    for (std::function<void()> &heard : std::exchange(m_heard, {}))
        QTimer::singleShot(0, &m_deferred, std::move(heard));
}

void PlaybackEngine::stop()
{
    if (!m_output)
        return;
    endGroup();
    m_source.clear();
    if (m_started)
        m_output->start(m_source, m_format); // what the stream has queued is silenced
}

} // namespace klangor
