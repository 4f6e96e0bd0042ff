#include "fakeaudiooutput.h"
#include "playback/playbackengine.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QTest>

namespace klangor {
namespace {

using test::rampSound;

struct Rig
{
    Rig()
    {
        auto fake = std::make_unique<test::FakeAudioOutput>(recording);
        output = fake.get();
        engine = std::make_unique<PlaybackEngine>(std::move(fake));
    }
    const std::vector<qint16> &stream() const { return recording.back(); }
    // Where the sound's first sample was played in the stream, at or after from; -1 if not.
    qint64 find(const std::shared_ptr<const PcmSound> &sound, qint64 from = 0) const
    {
        const auto it = std::search(stream().begin() + from, stream().end(), sound->samples.begin(),
                                    sound->samples.end());
        return it == stream().end() ? -1 : it - stream().begin();
    }
    bool heardWhole(const std::shared_ptr<const PcmSound> &sound)
    {
        return QTest::qWaitFor([&] { return find(sound) >= 0; });
    }

    test::OutputRecording recording;
    test::FakeAudioOutput *output = nullptr;
    std::unique_ptr<PlaybackEngine> engine;
};

// The group ends when the caller is back in its event loop, or when it says so itself.
TEST(PlaybackEngine, GroupSoundsJoinBackToBackAndInputWaitsForTheLastSample)
{
    for (const bool callerEnds : {false, true}) {
        Rig rig;
        const auto a = rampSound(1500, 1);
        const auto b = rampSound(40, 5000); // shorter than what the engine leaves itself ahead
        const auto c = rampSound(900, 9000);
        for (const auto &sound : {a, b, c})
            rig.engine->playAndWait(sound);
        // Back from the last one early enough to queue another; the user's input is held until
        // the last sample has been heard.
        ASSERT_EQ(rig.recording.size(), 1u);
        const qint64 start = rig.find(a);
        ASSERT_GE(start, 0);
        const qint64 end = start + 2440;
        EXPECT_LT(rig.output->heardPosition(), end);
        if (callerEnds)
            rig.engine->waitUntilHeard();
        else
            QCoreApplication::processEvents();
        EXPECT_GE(rig.output->heardPosition(), end) << callerEnds;
        EXPECT_EQ(rig.find(b, start), start + 1500);
        EXPECT_EQ(rig.find(c, start), start + 1540);
    }
}

TEST(PlaybackEngine, AnOutputThatStopsOpeningHoldsNothingUp)
{
    Rig rig;
    rig.engine->playAndWait(rampSound(300, 1));
    rig.output->setOpens(false); // the server went away in mid-group
    QElapsedTimer clock;
    clock.start();
    rig.engine->playAndWait(rampSound(3 * 11025, 1000));
    QCoreApplication::processEvents();
    EXPECT_LT(clock.elapsed(), 1000); // not the sound's 3 s and more
}

TEST(PlaybackEngine, StartingASoundDropsTheOnePlaying)
{
    // first and second sound: true plays it as a group sound, false as a loop
    const std::pair<bool, bool> cases[] = {{false, false}, {false, true}, {true, false}};
    for (const auto &[firstInGroup, secondInGroup] : cases) {
        Rig rig;
        const auto first = rampSound(700, 1);
        const auto second = rampSound(300, 20000);
        for (const auto &[inGroup, s] : {std::pair{firstInGroup, first}, {secondInGroup, second}}) {
            if (inGroup)
                rig.engine->playAndWait(s);
            else
                rig.engine->play(s, true);
            ASSERT_TRUE(rig.heardWhole(s));
        }
        // From the new sound's first sample on, nothing of the old one is played.
        const auto from = rig.stream().begin() + rig.find(second);
        EXPECT_TRUE(
            std::none_of(from, rig.stream().end(), [](qint16 s) { return s > 0 && s <= 700; }))
            << firstInGroup << secondInGroup;
    }
}

TEST(PlaybackEngine, StopSilencesALoop)
{
    Rig rig;
    rig.engine->play(rampSound(700, 1), true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rig.stream().size() > 2000; }));
    rig.engine->stop();
    const std::size_t stoppedAt = rig.stream().size();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rig.stream().size() > stoppedAt + 500; }));
    EXPECT_TRUE(std::all_of(rig.stream().begin() + qint64(stoppedAt), rig.stream().end(),
                            [](qint16 s) { return s == 0; }));
}

} // namespace
} // namespace klangor
