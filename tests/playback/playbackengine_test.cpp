#include "fakeaudiooutput.h"
#include "playback/playbackengine.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QTest>

namespace klangor {
namespace {

using test::rampSound;

struct Rig
{
    Rig() : engine(std::make_unique<test::FakeAudioOutput>(recording)) {}
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

    test::OutputRecording recording;
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
    rig.engine.playAndWait(c);
    // One stream that holds the three sounds and nothing else.
    ASSERT_EQ(rig.recording.segments.size(), 1u);
    EXPECT_EQ(rig.recording.lastSize(), 5040u);
    EXPECT_TRUE(rig.startsWith(b, 3000) && rig.startsWith(c, 3040));
}

TEST(PlaybackEngine, StartingASoundDropsTheOnePlaying)
{
    // first and second sound: true plays it as a group sound, false as a loop
    const std::pair<bool, bool> cases[] = {{false, false}, {false, true}, {true, false}};
    for (const auto &[firstInGroup, secondInGroup] : cases) {
        Rig rig;
        const auto sound = rampSound(300, 20000);
        for (const auto &[inGroup, s] :
             {std::pair{firstInGroup, rampSound(700, 1)}, std::pair{secondInGroup, sound}}) {
            if (inGroup)
                rig.engine.playAndWait(s);
            else
                rig.engine.play(s, true);
            ASSERT_TRUE(rig.heard(s->samples.size()));
        }
        // The output was restarted, and its new stream begins with the new sound.
        ASSERT_EQ(rig.recording.segments.size(), 2u);
        EXPECT_TRUE(rig.startsWith(sound)) << firstInGroup << secondInGroup;
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

} // namespace
} // namespace klangor
