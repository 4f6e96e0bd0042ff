#pragma once

#include "playback/pcmsound.h"
#include "playback/priorityinheritingmutex.h"

#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace klangor {

// The stream an output plays: the queued sounds back to back, a looping sound wrapped around
// sample-exactly, silence once they have run out. The output reads it on its own thread while
// the window's thread queues and drops sounds, so every call is safe from either thread.
// Every sound is pinned to the stream position where it starts, so what the output reads for
// a position is the same however often it reads it again: an output that keeps much audio
// queued can rewrite a stretch it already wrote and still join sounds without a gap.
class FrameSource
{
public:
    using Ticket = quint64;

    struct Progress
    {
        qint64 framesLeft = 0;             // of the sound and of those before it, not yet read
        std::optional<qint64> endPosition; // just behind its last frame, once that was read
    };

    // Drops everything queued and queues the sound.
    Ticket play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Queues the sound behind the others; nothing behind a loop is ever reached. Queued when
    // all others were read to their end, it starts right behind the last of them, and `behind`
    // (when given) gets that position; otherwise it is left empty.
    Ticket enqueue(std::shared_ptr<const PcmSound> sound, bool loop = false,
                   std::optional<qint64> *behind = nullptr);
    // Drops everything queued. What is queued next waits in silence for restart(): the
    // output decides where in its stream the new sounds begin.
    void clear();
    // Sounds not yet begun start at the next position read.
    void restart();
    bool isEmpty() const;
    // A dropped sound, and one read to its end before another was, has no frames left and
    // no end position: nothing of it is waited for any more.
    Progress progress(Ticket ticket) const;

    // Fills `frames` frames of `channels` channels, the first at stream position `position`:
    // the queue, then silence. False when all of it is silence.
    bool read(qint16 *out, qint64 frames, int channels, qint64 position);

private:
    void retireFront();

    struct Item
    {
        std::shared_ptr<const PcmSound> sound;
        bool loop = false;
        Ticket ticket = 0;
        std::optional<qint64> start; // stream position of its first frame, once known
    };

    // The output's real-time thread waits for it while the window's thread holds it.
    mutable PriorityInheritingMutex m_mutex;
    std::deque<Item> m_items;
    // Sounds read to their end, freed by the next enqueue or clear: a real-time reader must
    // not free the samples of a long sound itself. Room for all queued is kept, so moving
    // one here allocates nothing.
    std::vector<std::shared_ptr<const PcmSound>> m_retired;
    Ticket m_nextTicket = 1;
    bool m_held = false;
    qint64 m_readTo = 0;      // just behind the last position read
    Ticket m_endedTicket = 0; // the sound read to its end last, and where it ended
    qint64 m_endedAt = 0;
};

} // namespace klangor
