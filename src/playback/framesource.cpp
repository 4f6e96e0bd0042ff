#include "playback/framesource.h"

#include <algorithm>
#include <cstring>

namespace klangor {

FrameSource::Ticket FrameSource::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    clear();
    return enqueue(std::move(sound), loop);
}

FrameSource::Ticket FrameSource::enqueue(std::shared_ptr<const PcmSound> sound, bool loop)
{
    const std::lock_guard lock(m_mutex);
    const Ticket ticket = m_nextTicket++;
    // A sound without frames is over at once; looping it would spin forever.
    if (sound && sound->frameCount() > 0)
        m_items.push_back({std::move(sound), loop, 0, ticket});
    return ticket;
}

void FrameSource::clear()
{
    const std::lock_guard lock(m_mutex);
    m_items.clear();
    m_endedTicket = 0;
}

FrameSource::Progress FrameSource::progress(Ticket ticket) const
{
    const std::lock_guard lock(m_mutex);
    Progress progress;
    if (ticket == m_endedTicket)
        progress.endPosition = m_endedAt;
    for (const Item &item : m_items) {
        if (item.ticket > ticket)
            break;
        progress.framesLeft +=
            item.sound->frameCount() - item.position / item.sound->format.channels;
    }
    return progress;
}

bool FrameSource::read(qint16 *out, qint64 frames, int channels, qint64 position)
{
    const std::lock_guard lock(m_mutex);
    qint64 done = 0; // frames
    while (done < frames && !m_items.empty()) {
        Item &item = m_items.front();
        // Only a sound of the stream's own layout can be played; the engine never queues another.
        if (item.sound->format.channels != channels) {
            m_items.pop_front();
            continue;
        }
        const qint64 total = item.sound->frameCount() * channels; // whole frames only
        const qint64 n = std::min((frames - done) * channels, total - item.position);
        std::memcpy(out + done * channels, item.sound->samples.data() + item.position,
                    static_cast<std::size_t>(n) * 2);
        item.position += n;
        done += n / channels;
        if (item.position == total) {
            if (item.loop) {
                item.position = 0;
            } else {
                m_endedTicket = item.ticket;
                m_endedAt = position + done;
                m_items.pop_front();
            }
        }
    }
    std::fill(out + done * channels, out + frames * channels, qint16(0));
    return done > 0;
}

} // namespace klangor
