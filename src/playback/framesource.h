#pragma once

#include "playback/pcmsound.h"

#include <deque>
#include <memory>
#include <QIODevice>

namespace klangor {

// The stream the output pulls: the queued sounds back to back, a looping sound wrapped
// around sample-exactly, nothing once they have run out (the output then waits for
// readyRead). Every queued sound has a ticket that tells when all its frames have been read.
// All sounds of the queue have the format the output was started with.
class FrameSource final : public QIODevice
{
    Q_OBJECT

public:
    using Ticket = quint64;

    FrameSource();

    // Drops everything queued and queues the sound.
    Ticket play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Queues the sound behind the others; nothing behind a loop is ever reached.
    Ticket enqueue(std::shared_ptr<const PcmSound> sound, bool loop = false);
    void clear();
    // True once every frame of the ticket's sound has been read, or the sound was dropped.
    bool isHandedOver(Ticket ticket) const;

    bool isSequential() const override { return true; }
    // What is queued; the output lowers its start threshold to it for sounds shorter than that.
    qint64 bytesAvailable() const override;

signals:
    // The last frame of a sound has been read, or sounds were dropped.
    void handedOver();

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    struct Item
    {
        std::shared_ptr<const PcmSound> sound;
        bool loop = false;
        qint64 position = 0; // in samples
        Ticket ticket = 0;
    };

    std::deque<Item> m_items;
    Ticket m_nextTicket = 1;
};

} // namespace klangor
