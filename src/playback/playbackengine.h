#pragma once

#include "playback/audiooutput.h"
#include "playback/framesource.h"
#include "playback/pcmsound.h"

#include <deque>
#include <functional>
#include <memory>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <vector>

namespace klangor {

// Plays one sound at a time on an output that keeps its stream open. Starting a sound drops
// whatever plays; the sounds of a group join without a gap. No call waits: the end of a group
// is reported through whenHeard.
class PlaybackEngine
{
public:
    // Without an output the engine stays silent and every call returns at once.
    explicit PlaybackEngine(std::unique_ptr<AudioOutput> output);
    ~PlaybackEngine();
    PlaybackEngine(const PlaybackEngine &) = delete;
    PlaybackEngine &operator=(const PlaybackEngine &) = delete;

    // Drops what plays and starts the sound; returns at once.
    void play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Plays the sound as part of a group: right behind the group's sounds while they are not
    // yet heard to their end, otherwise in place of what plays. Returns at once.
    void playInGroup(std::shared_ptr<const PcmSound> sound);
    // Calls heard once, from the event loop, when the group has been heard to its last sample,
    // was dropped by a start or stop, or could not play (at once when no group plays).
    void whenHeard(std::function<void()> heard);
    // Drops what plays; nothing more is heard after what the stream already holds.
    void stop();
    // False without an output, or while the output reports that nothing can be heard.
    bool isAudible() const { return m_output && !m_refused; }
    // Hears, from the event loop, each change of isAudible the output reports by itself.
    void onAudibleChanged(std::function<void(bool)> changed)
    {
        m_audibleChanged = std::move(changed);
    }

private:
    FrameSource::Ticket start(std::shared_ptr<const PcmSound> sound, bool loop);
    // Queues what of the group can be queued, then looks again when there is more to do.
    void advanceGroup();
    // Frames until the group's last sample has been heard.
    qint64 framesUntilHeard();
    void wakeAfter(qint64 frames);
    void endGroup();

    FrameSource m_source; // outlives the output, which reads it until it is gone
    std::unique_ptr<AudioOutput> m_output;
    PcmFormat m_format; // what the output plays
    bool m_refused = false;

    bool m_inGroup = false; // the group's next sound joins the stream
    // Sounds of another format than the stream's: they start afresh once those before them
    // are read.
    std::deque<std::shared_ptr<const PcmSound>> m_waiting;
    FrameSource::Ticket m_lastInGroup = 0;
    QElapsedTimer m_groupClock;
    qint64 m_groupBudgetMs = 0; // a stalled output is given up after this
    std::vector<std::function<void()>> m_heard;
    std::function<void(bool)> m_audibleChanged;
    bool m_started = false; // a sound went to the output: a stop has something to silence
    QTimer m_wake;
    QObject m_deferred; // context of the calls the engine leaves for later; goes with it
};

} // namespace klangor
