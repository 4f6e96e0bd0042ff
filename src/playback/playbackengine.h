#pragma once

#include "playback/audiooutput.h"
#include "playback/pcmsound.h"

#include <functional>
#include <memory>

namespace klangor {

// Plays one sound at a time on a worker thread that pushes frames into an AudioOutput.
// Starting a sound drops whatever plays; sounds given to playAndWait one after another
// join without a gap. All methods are called from one thread (the window's).
class PlaybackEngine
{
public:
    // Runs on the worker thread; nullptr means there is no output and the engine stays mute.
    using OutputFactory = std::function<std::unique_ptr<AudioOutput>()>;

    explicit PlaybackEngine(OutputFactory factory);
    ~PlaybackEngine();
    PlaybackEngine(const PlaybackEngine &) = delete;
    PlaybackEngine &operator=(const PlaybackEngine &) = delete;

    // Drops what plays and starts the sound; returns at once.
    void play(std::shared_ptr<const PcmSound> sound, bool loop);
    // Plays the sound right behind the one of the previous playAndWait (or, after anything
    // else, in its place) and returns once its last frame has been handed to the output, so
    // that the next one can follow seamlessly. Returns early when the output is missing.
    void playAndWait(std::shared_ptr<const PcmSound> sound);
    // Drops what plays; nothing more is heard.
    void stop();

    // False once the output turned out missing or broke down.
    bool isAudible() const;

private:
    struct Shared;
    class Worker;
    class Thread;
    void wakeWorker();

    std::shared_ptr<Shared> m_shared;
    std::unique_ptr<Thread> m_thread;
    Worker *m_worker = nullptr;
};

} // namespace klangor
