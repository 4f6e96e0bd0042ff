#include "fakeaudiooutput.h"
#include "playback/playbackengine.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QTest>

namespace klangor {
namespace {

using test::FakeAudioOutput;
using test::FakeOutputOptions;
using test::OutputRecording;
using test::rampSound;

struct Rig
{
    Rig() : engine(std::make_unique<FakeAudioOutput>(recording)) {}
    bool heard(std::size_t samples)
    {
        return QTest::qWaitFor([&] { return recording.lastSize() >= samples; });
    }
    bool startsWith(const std::shared_ptr<const PcmSound> &sound, std::size_t at = 0) const
    {
        const auto &segment = recording.segments.back();
        return segment.size() >= at + sound->samples.size() &&
               std::equal(sound->samples.begin(), sound->samples.end(), segment.begin() + at);
    }

    OutputRecording recording;
    PlaybackEngine engine;
};

TEST(PlaybackEngine, GroupSoundsJoinBackToBackAndEachWaitEndsWithItsSound)
{
    Rig rig;
    const auto a = rampSound(3000, 1);
    const auto b = rampSound(40, 5000); // shorter than one pull
    const auto c = rampSound(2000, 9000);
    rig.engine.playAndWait(a);
    EXPECT_TRUE(rig.startsWith(a));
    rig.engine.playAndWait(b);
    EXPECT_TRUE(rig.startsWith(b, 3000));
    rig.engine.playAndWait(c);
    // One stream that holds the three sounds and nothing else.
    ASSERT_EQ(rig.recording.segments.size(), 1u);
    EXPECT_EQ(rig.recording.lastSize(), 5040u);
    EXPECT_TRUE(rig.startsWith(c, 3040));
}

enum class Start
{
    Loop,
    Once,
    Group
};

void start(PlaybackEngine &engine, Start how, std::shared_ptr<const PcmSound> sound)
{
    if (how == Start::Group)
        engine.playAndWait(std::move(sound));
    else
        engine.play(std::move(sound), how == Start::Loop);
}

TEST(PlaybackEngine, StartingASoundDropsTheOnePlaying)
{
    const std::pair<Start, Start> cases[] = {{Start::Loop, Start::Loop},
                                             {Start::Loop, Start::Once},
                                             {Start::Loop, Start::Group},
                                             {Start::Group, Start::Loop}};
    for (const auto &[first, second] : cases) {
        Rig rig;
        const auto sound = rampSound(300, 20000);
        start(rig.engine, first, rampSound(700, 1));
        ASSERT_TRUE(rig.heard(700));
        start(rig.engine, second, sound);
        ASSERT_TRUE(rig.heard(300));
        // The output was restarted, and its new stream begins with the new sound.
        ASSERT_EQ(rig.recording.segments.size(), 2u);
        EXPECT_TRUE(rig.startsWith(sound)) << int(first) << " then " << int(second);
    }
}

TEST(PlaybackEngine, StopSilencesALoop)
{
    Rig rig;
    rig.engine.play(rampSound(700, 1), true);
    ASSERT_TRUE(rig.heard(2000));
    rig.engine.stop();
    EXPECT_FALSE(rig.recording.pulling);
    const std::size_t heard = rig.recording.lastSize();
    QCoreApplication::processEvents();
    EXPECT_EQ(rig.recording.lastSize(), heard);
}

// Without a device, with one that cannot be opened or one that never takes a frame: every
// call comes back and nothing is heard.
TEST(PlaybackEngine, WithoutAWorkingOutputCallsReturn)
{
    FakeOutputOptions failing;
    failing.failsToOpen = true;
    FakeOutputOptions stalled;
    stalled.stalled = true;
    for (const auto *options : {static_cast<FakeOutputOptions *>(nullptr), &failing, &stalled}) {
        OutputRecording recording;
        PlaybackEngine engine(options ? std::make_unique<FakeAudioOutput>(recording, *options)
                                      : nullptr);
        engine.play(rampSound(5000, 1), true);
        engine.playAndWait(rampSound(10, 1)); // a stalled output is given up after a while
        engine.stop();
        EXPECT_EQ(recording.lastSize(), 0u);
    }
}

} // namespace
} // namespace klangor
