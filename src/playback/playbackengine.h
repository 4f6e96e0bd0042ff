#pragma once

#include "playback/audiooutput.h"
#include "playback/framesource.h"
#include "playback/pcmsound.h"

#include <functional>
#include <memory>
#include <QObject>

namespace klangor {

// Plays one sound at a time on an output that keeps its stream open. Starting a sound drops
// whatever plays; sounds given to playAndWait one after another join without a gap.
class PlaybackEngine
{
public:
    // Without an output the engine stays silent and every call returns at once.
    explicit PlaybackEngine(std::unique_ptr<AudioOutput> output);

    // Drops what plays and starts the sound; returns at once.
    void play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Plays the sound right behind the one of the previous playAndWait (or, after anything
    // else, in its place). Returns shortly before its end, in time to queue the next one
    // seamlessly; once the caller is back in its event loop without another sound, the user's
    // input waits until the sound's last sample has been heard. Runs the event loop meanwhile,
    // without user input.
    void playAndWait(std::shared_ptr<const PcmSound> sound);
    // Ends a group early, where the caller knows no sound follows: returns once the last sound
    // of playAndWait has been heard, without user input meanwhile.
    void waitUntilHeard();
    // Drops what plays; nothing more is heard after what the stream already holds.
    void stop();
    // False without an output or once the output refused to start.
    bool isAudible() const { return m_output && !m_refused; }

private:
    FrameSource::Ticket start(std::shared_ptr<const PcmSound> sound, bool loop);
    // Runs the event loop without user input until framesToWait() finds nothing more to wait
    // for, waking when that many frames should have passed, or the budget is spent.
    void waitFrames(const std::function<qint64()> &framesToWait, qint64 budgetMs);
    void holdInputUntilHeard(FrameSource::Ticket ticket, quint64 generation, qint64 budgetMs);

    FrameSource m_source; // outlives the output, which reads it until it is gone
    std::unique_ptr<AudioOutput> m_output;
    PcmFormat m_format;      // what the output plays
    bool m_chaining = false; // a group is being played: its next sound joins the stream
    bool m_refused = false;
    FrameSource::Ticket m_lastWait = 0;
    quint64 m_generation = 0; // counts the starts and stops that drop what plays
    QObject m_deferred;       // context of the calls the engine leaves for later; goes with it
};

} // namespace klangor
