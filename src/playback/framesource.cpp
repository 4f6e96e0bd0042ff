#include "playback/framesource.h"

#include <algorithm>
#include <cstring>

namespace klangor {

FrameSource::FrameSource()
{
    // Unbuffered: QIODevice must not read ahead, or a dropped sound would linger in its buffer
    // and tickets would count as handed over before the output has taken their frames.
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

FrameSource::Ticket FrameSource::play(std::shared_ptr<const PcmSound> sound, bool loop)
{
    clear();
    return enqueue(std::move(sound), loop);
}

FrameSource::Ticket FrameSource::enqueue(std::shared_ptr<const PcmSound> sound, bool loop)
{
    const Ticket ticket = m_nextTicket++;
    // A sound without frames is over at once; looping it would spin forever.
    if (sound && sound->frameCount() > 0) {
        m_items.push_back({std::move(sound), loop, 0, ticket});
        emit readyRead();
    }
    return ticket;
}

void FrameSource::clear()
{
    m_items.clear();
    emit handedOver();
}

bool FrameSource::isHandedOver(Ticket ticket) const
{
    return m_items.empty() || m_items.front().ticket > ticket;
}

qint64 FrameSource::bytesAvailable() const
{
    qint64 samples = 0;
    for (const Item &item : m_items)
        samples += static_cast<qint64>(item.sound->samples.size()) - item.position;
    return samples * 2 + QIODevice::bytesAvailable();
}

qint64 FrameSource::readData(char *data, qint64 maxSize)
{
    if (m_items.empty())
        return 0;
    // Whole frames only: the output's format has the queued sounds' channel count.
    const int channels = m_items.front().sound->format.channels;
    const qint64 wanted = maxSize / 2 / channels * channels;
    qint64 done = 0;
    bool finished = false;
    while (done < wanted && !m_items.empty()) {
        Item &item = m_items.front();
        const auto total = static_cast<qint64>(item.sound->samples.size());
        const qint64 n = std::min(wanted - done, total - item.position);
        std::memcpy(data + done * 2, item.sound->samples.data() + item.position,
                    static_cast<std::size_t>(n) * 2);
        item.position += n;
        done += n;
        if (item.position == total) {
            if (item.loop) {
                item.position = 0;
            } else {
                m_items.pop_front();
                finished = true;
            }
        }
    }
    if (finished)
        emit handedOver();
    return done * 2;
}

} // namespace klangor
