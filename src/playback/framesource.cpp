#include "playback/framesource.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace klangor {

FrameSource::Ticket FrameSource::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    clear();
    return enqueue(std::move(sound), loop);
}

FrameSource::Ticket FrameSource::enqueue(std::shared_ptr<const PcmSound> sound, bool loop,
                                         std::optional<qint64> *behind)
{
    if (behind)
        behind->reset();
    // Freed once the lock is given back: the reader never waits while samples are freed.
    std::vector<std::shared_ptr<const PcmSound>> retired;
    const std::lock_guard lock(m_mutex);
    const Ticket ticket = m_nextTicket++;
    // A sound without frames is over at once; looping it would spin forever.
    if (sound && sound->frameCount() > 0) {
        std::optional<qint64> start;
        if (m_items.empty() && m_endedTicket != 0)
            start = m_endedAt;
        if (behind)
            *behind = start;
        m_items.push_back({std::move(sound), loop, ticket, start});
    }
    retired.swap(m_retired);
    m_retired.reserve(m_items.size());
    return ticket;
}

void FrameSource::clear()
{
    std::deque<Item> dropped; // freed once the lock is given back
    std::vector<std::shared_ptr<const PcmSound>> retired;
    const std::lock_guard lock(m_mutex);
    dropped.swap(m_items);
    retired.swap(m_retired);
    m_endedTicket = 0;
    m_held = true;
}

void FrameSource::restart()
{
    const std::lock_guard lock(m_mutex);
    m_held = false;
}

bool FrameSource::isEmpty() const
{
    const std::lock_guard lock(m_mutex);
    return m_items.empty();
}

FrameSource::Progress FrameSource::progress(Ticket ticket) const
{
    const std::lock_guard lock(m_mutex);
    Progress progress;
    if (ticket == m_endedTicket)
        progress.endPosition = m_endedAt;
    qint64 at = m_readTo; // where the next sound not yet begun would start
    for (const Item &item : m_items) {
        if (item.ticket > ticket)
            break;
        const qint64 start = item.start.value_or(at);
        const qint64 length = item.sound->frameCount();
        qint64 read = std::max<qint64>(0, m_readTo - start);
        if (item.loop)
            read %= length;
        progress.framesLeft += length - std::min(read, length);
        at = start + length;
    }
    return progress;
}

void FrameSource::retireFront()
{
    if (m_retired.size() < m_retired.capacity())
        m_retired.push_back(std::move(m_items.front().sound));
    m_items.pop_front();
}

bool FrameSource::read(qint16 *out, qint64 frames, int channels, qint64 position)
{
    const std::lock_guard lock(m_mutex);
    qint64 done = 0; // frames
    bool audible = false;
    while (done < frames && !m_held && !m_items.empty()) {
        Item &item = m_items.front();
        // Only a sound of the stream's own layout can be played; the engine never queues another.
        if (item.sound->format.channels != channels) {
            retireFront();
            continue;
        }
        const qint64 at = position + done;
        if (!item.start)
            item.start = at;
        const qint64 length = item.sound->frameCount();
        if (*item.start > at) { // silence until it begins
            const qint64 n = std::min(frames - done, *item.start - at);
            std::fill(out + done * channels, out + (done + n) * channels, qint16(0));
            done += n;
            continue;
        }
        qint64 offset = at - *item.start;
        if (item.loop)
            offset %= length;
        const qint64 n = std::clamp<qint64>(length - offset, 0, frames - done);
        std::memcpy(out + done * channels, item.sound->samples.data() + offset * channels,
                    static_cast<std::size_t>(n * channels) * 2);
        done += n;
        audible = audible || n > 0;
        if (!item.loop && offset + n >= length) { // read to its end: the next one follows
            m_endedTicket = item.ticket;
            m_endedAt = *item.start + length;
            retireFront();
            if (!m_items.empty() && !m_items.front().start)
                m_items.front().start = m_endedAt;
        }
    }
    std::fill(out + done * channels, out + frames * channels, qint16(0));
    m_readTo = position + frames;
    return audible;
}

} // namespace klangor
