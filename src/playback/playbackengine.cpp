#include "playback/playbackengine.h"

#include <QEventLoop>
#include <QTimer>

namespace klangor {

namespace {

// What the output is asked to hold ahead of the ear (PulseAudio grants somewhat less). A
// group sound is handed over this long before it ends, ample time to queue the next one; a
// loop or a single sound rides out a busy window for that long (stopping drops it at once).
constexpr int groupBufferMs = 100;
constexpr int soundBufferMs = 2000;
// playAndWait gives up this long after the sound should have been taken (a stalled output).
constexpr qint64 waitMarginMs = 2000;

} // namespace

PlaybackEngine::PlaybackEngine(std::unique_ptr<AudioOutput> output) : m_output(std::move(output)) {}

FrameSource::Ticket PlaybackEngine::start(std::shared_ptr<const PcmSound> sound, bool loop,
                                          int bufferMs)
{
    m_output->stop();
    m_chaining = false;
    if (!sound)
        return m_source.play(nullptr, false);
    m_format = sound->format;
    // Queued before the output starts, which sizes its start threshold by what is there.
    const FrameSource::Ticket ticket = m_source.play(std::move(sound), loop);
    m_refused = !m_output->start(&m_source, m_format, bufferMs);
    if (m_refused)
        m_source.clear();
    return ticket;
}

void PlaybackEngine::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    if (m_output)
        start(std::move(sound), loop, soundBufferMs);
}

void PlaybackEngine::playAndWait(std::shared_ptr<const PcmSound> sound)
{
    if (!m_output || !sound)
        return;
    const qint64 duration = sound->durationMilliseconds();
    FrameSource::Ticket ticket = 0;
    // A group's sounds share the working files' format; one of another format starts afresh.
    if (m_chaining && sound->format == m_format) {
        ticket = m_source.enqueue(std::move(sound));
    } else {
        ticket = start(std::move(sound), false, groupBufferMs);
        m_chaining = !m_source.isHandedOver(ticket);
    }
    m_lastWait = ticket;
    if (!m_source.isHandedOver(ticket)) {
        QEventLoop loop;
        QObject::connect(&m_source, &FrameSource::handedOver, &loop, [&] {
            if (m_source.isHandedOver(ticket))
                loop.quit();
        });
        QTimer::singleShot(duration + waitMarginMs, &loop, &QEventLoop::quit);
        // The window handles no clicks meanwhile; they wait until the group is over.
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    // The group is over once the caller is back in the event loop without another sound.
    QTimer::singleShot(0, &m_source, [this, ticket] {
        if (m_lastWait == ticket)
            m_chaining = false;
    });
}

void PlaybackEngine::stop()
{
    if (!m_output)
        return;
    m_chaining = false;
    m_source.clear();
    m_output->stop();
}

} // namespace klangor
