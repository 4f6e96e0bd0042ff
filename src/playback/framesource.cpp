#include "playback/framesource.h"

#include "playback/pcmconvert.h"

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
    const Ticket ticket = m_nextTicket++;
    // A sound without frames is over at once; looping it would spin forever.
    if (sound && sound->frameCount() > 0)
        m_items.push_back({std::move(sound), loop, 0, ticket});
    return ticket;
}

void FrameSource::clear()
{
    m_items.clear();
}

std::optional<PcmFormat> FrameSource::headFormat() const
{
    if (m_items.empty())
        return std::nullopt;
    return m_items.front().sound->format;
}

bool FrameSource::headStarted() const
{
    return !m_items.empty() && m_items.front().position > 0;
}

void FrameSource::convertHead(const PcmFormat &format)
{
    if (m_items.empty() || headStarted() || m_items.front().sound->format == format)
        return;
    auto converted = std::make_shared<const PcmSound>(convertPcm(*m_items.front().sound, format));
    if (converted->frameCount() == 0)
        m_items.pop_front();
    else
        m_items.front().sound = std::move(converted);
}

qint64 FrameSource::read(qint16 *out, qint64 maxFrames)
{
    if (m_items.empty())
        return 0;
    const PcmFormat format = m_items.front().sound->format;
    const int channels = format.channels;
    qint64 done = 0;
    while (done < maxFrames && !m_items.empty() && m_items.front().sound->format == format) {
        Item &item = m_items.front();
        const qint64 frames = item.sound->frameCount();
        const qint64 n = std::min(maxFrames - done, frames - item.position);
        std::memcpy(out + done * channels, item.sound->samples.data() + item.position * channels,
                    static_cast<std::size_t>(n * channels) * sizeof(qint16));
        item.position += n;
        done += n;
        if (item.position == frames) {
            if (item.loop)
                item.position = 0;
            else
                m_items.pop_front();
        }
    }
    return done;
}

bool FrameSource::isHandedOver(Ticket ticket) const
{
    return m_items.empty() || m_items.front().ticket > ticket;
}

} // namespace klangor
