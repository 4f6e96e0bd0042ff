#pragma once

#include "playback/pcmsound.h"

#include <deque>
#include <memory>
#include <optional>

namespace klangor {

// The queue that feeds the output: sounds are read back to back, a looping sound wraps
// around sample-exactly, and every queued sound has a ticket that tells when all its frames
// have been handed out. Not thread-safe; the engine guards it.
class FrameSource
{
public:
    using Ticket = quint64;

    // Drops everything queued and queues the sound.
    Ticket play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Queues the sound behind the others; nothing behind a loop is ever reached.
    Ticket enqueue(std::shared_ptr<const PcmSound> sound, bool loop = false);
    void clear();

    bool isEmpty() const { return m_items.empty(); }
    // The format of the next frame to be read.
    std::optional<PcmFormat> headFormat() const;
    bool headStarted() const;
    // Converts the next sound to another format, as long as none of it has been read.
    void convertHead(const PcmFormat &format);

    // Reads up to maxFrames frames of the head's format into out; stops where a queued sound
    // of another format begins. Returns the frames read.
    qint64 read(qint16 *out, qint64 maxFrames);

    // True once every frame of the ticket's sound has been read, or the sound was dropped.
    bool isHandedOver(Ticket ticket) const;

private:
    struct Item
    {
        std::shared_ptr<const PcmSound> sound;
        bool loop = false;
        qint64 position = 0;
        Ticket ticket = 0;
    };

    std::deque<Item> m_items;
    Ticket m_nextTicket = 1;
};

} // namespace klangor
