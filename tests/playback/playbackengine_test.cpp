#include "fakeaudiooutput.h"
#include "playback/playbackengine.h"
#include "soundfixtures.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QThread>

namespace klangor {
namespace {

using test::FakeAudioOutput;
using test::OutputRecording;
using test::rampSound;
using test::waitUntil;

struct Rig
{
    explicit Rig(FakeAudioOutput::Options options = fastOptions())
        : recording(std::make_shared<OutputRecording>()),
          engine([rec = recording, options]() -> std::unique_ptr<AudioOutput> {
              return std::make_unique<FakeAudioOutput>(rec, options);
          })
    {}

    static FakeAudioOutput::Options fastOptions()
    {
        FakeAudioOutput::Options options;
        options.speed = 2.0;
        return options;
    }

    // Waits until the latest opening holds at least frames samples.
    bool heard(std::size_t samples, int timeoutMs = 5000) const
    {
        return waitUntil([&] { return recording->lastSegment().size() >= samples; }, timeoutMs);
    }

    std::shared_ptr<OutputRecording> recording;
    PlaybackEngine engine;
};

std::vector<qint16> concat(const std::vector<std::shared_ptr<const PcmSound>> &sounds)
{
    std::vector<qint16> all;
    for (const auto &s : sounds)
        all.insert(all.end(), s->samples.begin(), s->samples.end());
    return all;
}

// The segment begins with want and has nothing but silence after it.
void expectExactlyThenSilence(const std::vector<qint16> &segment, const std::vector<qint16> &want)
{
    ASSERT_GE(segment.size(), want.size());
    EXPECT_TRUE(std::equal(want.begin(), want.end(), segment.begin()));
    EXPECT_TRUE(std::all_of(segment.begin() + static_cast<std::ptrdiff_t>(want.size()),
                            segment.end(), [](qint16 s) { return s == 0; }));
}

class GroupPlayback : public ::testing::TestWithParam<std::vector<qint64>>
{};

TEST_P(GroupPlayback, SoundsJoinBackToBackWithoutAGap)
{
    Rig rig;
    std::vector<std::shared_ptr<const PcmSound>> sounds;
    qint16 start = 1;
    for (const qint64 frames : GetParam()) {
        sounds.push_back(rampSound(frames, start));
        start = static_cast<qint16>(start + frames + 7);
    }
    for (const auto &s : sounds)
        rig.engine.playAndWait(s);
    const auto want = concat(sounds);
    ASSERT_TRUE(rig.heard(want.size()));
    QThread::msleep(60); // room for anything that should not come
    EXPECT_EQ(rig.recording->openings(), 1u);
    expectExactlyThenSilence(rig.recording->lastSegment(), want);
    EXPECT_EQ(rig.recording->underrunCount(), 0);
}

// Sounds longer and shorter than the output's buffer (1102 frames), three in a row.
INSTANTIATE_TEST_SUITE_P(Lengths, GroupPlayback,
                         ::testing::Values(std::vector<qint64>{3000, 2000},
                                           std::vector<qint64>{500, 4000},
                                           std::vector<qint64>{2500, 2500, 2500},
                                           std::vector<qint64>{4000, 300, 3000}));

TEST(PlaybackEngine, PlayAndWaitBlocksUntilTheSoundIsHandedOver)
{
    Rig rig;
    const qint64 frames = 11025; // 0.5 s at double speed
    const auto sound = rampSound(frames, 1);
    QElapsedTimer clock;
    clock.start();
    rig.engine.playAndWait(sound);
    const qint64 elapsed = clock.elapsed();
    // It may return as soon as the last frame fits into the buffer, not before.
    const qint64 earliest = (frames - 1102) * 1000 / (11025 * 2);
    EXPECT_GE(elapsed, earliest * 9 / 10);
    EXPECT_LE(elapsed, 500 + 400);
    const auto segment = rig.recording->lastSegment();
    ASSERT_GE(segment.size(), sound->samples.size());
    EXPECT_TRUE(std::equal(sound->samples.begin(), sound->samples.end(), segment.begin()));
}

struct InterruptCase
{
    const char *name;
    std::function<void(PlaybackEngine &, std::shared_ptr<const PcmSound>)> first;
    std::function<void(PlaybackEngine &, std::shared_ptr<const PcmSound>)> second;
    bool secondIsSilence; // the second call is a stop
};

void loop(PlaybackEngine &e, std::shared_ptr<const PcmSound> s)
{
    e.play(std::move(s), true);
}
void once(PlaybackEngine &e, std::shared_ptr<const PcmSound> s)
{
    e.play(std::move(s), false);
}
void wait(PlaybackEngine &e, std::shared_ptr<const PcmSound> s)
{
    e.playAndWait(std::move(s));
}
void stop(PlaybackEngine &e, std::shared_ptr<const PcmSound>)
{
    e.stop();
}

const InterruptCase interruptCases[] = {
    {"loopThenLoop", loop, loop, false},  {"loopThenOnce", loop, once, false},
    {"loopThenGroup", loop, wait, false}, {"onceThenLoop", once, loop, false},
    {"onceThenGroup", once, wait, false}, {"groupThenOnce", wait, once, false},
    {"loopThenStop", loop, stop, true},   {"onceThenStop", once, stop, true},
};

class StartingASound : public ::testing::TestWithParam<InterruptCase>
{};

TEST_P(StartingASound, EndsTheOnePlaying)
{
    Rig rig;
    const auto first = rampSound(20000, 1);
    const auto second = rampSound(3000, 25000);
    GetParam().first(rig.engine, first);
    ASSERT_TRUE(rig.heard(2000));
    GetParam().second(rig.engine, second);

    if (GetParam().secondIsSilence) {
        ASSERT_TRUE(waitUntil([&] { return rig.recording->closeCount() == 1; }, 2000));
        const qint64 writes = rig.recording->totalWrites();
        QThread::msleep(80);
        EXPECT_EQ(rig.recording->totalWrites(), writes); // nothing follows the stop
        EXPECT_EQ(rig.recording->openings(), 1u);
        return;
    }
    ASSERT_TRUE(waitUntil([&] { return rig.recording->openings() == 2; }, 2000));
    // The first sound's stream was dropped, and the new one holds nothing of it.
    EXPECT_GE(rig.recording->closeCount(), 1);
    ASSERT_TRUE(rig.heard(second->samples.size()));
    const auto segment = rig.recording->lastSegment();
    EXPECT_TRUE(std::equal(second->samples.begin(), second->samples.end(), segment.begin()));
    EXPECT_TRUE(std::none_of(segment.begin(), segment.end(), [](qint16 s) {
        return s >= 1 && s < 20001; // the first sound's values
    }));
}

INSTANTIATE_TEST_SUITE_P(Pairs, StartingASound, ::testing::ValuesIn(interruptCases),
                         [](const auto &param) { return std::string(param.param.name); });

TEST(PlaybackEngine, LoopRepeatsOnTheOutputWithoutAnythingBetween)
{
    Rig rig;
    const auto sound = rampSound(700, 100);
    rig.engine.play(sound, true);
    ASSERT_TRUE(rig.heard(700 * 12));
    rig.engine.stop();
    const auto segment = rig.recording->lastSegment();
    for (std::size_t i = 0; i < segment.size(); ++i)
        ASSERT_EQ(segment[i], sound->samples[i % sound->samples.size()]) << "frame " << i;
    EXPECT_EQ(rig.recording->underrunCount(), 0);
}

TEST(PlaybackEngine, GroupSoundOfAnotherFormatIsConvertedToJoinTheStream)
{
    Rig rig;
    const auto a = rampSound(3000, 1, 11025);
    const auto b = rampSound(2000, 10000, 22050);
    rig.engine.playAndWait(a);
    rig.engine.playAndWait(b);
    ASSERT_TRUE(rig.heard(3000 + 1000));
    EXPECT_EQ(rig.recording->openings(), 1u);
    const auto segment = rig.recording->lastSegment();
    EXPECT_TRUE(std::equal(a->samples.begin(), a->samples.end(), segment.begin()));
    // Every other frame of b, at half the rate.
    for (std::size_t i = 0; i < 1000; ++i)
        ASSERT_EQ(segment[3000 + i], b->samples[2 * i]) << "frame " << i;
}

TEST(PlaybackEngine, FormatTheOutputCannotTakeIsConverted)
{
    FakeAudioOutput::Options options = Rig::fastOptions();
    options.supported = {{44100, 2}};
    Rig rig(options);
    const auto sound = rampSound(1000, 1, 11025);
    rig.engine.play(sound, false);
    ASSERT_TRUE(rig.heard(4000 * 2));
    ASSERT_EQ(rig.recording->formats.size(), 1u);
    EXPECT_EQ(rig.recording->formats.front(), (PcmFormat{44100, 2}));
    const auto segment = rig.recording->lastSegment();
    // Four frames per source frame, both channels alike.
    EXPECT_EQ(segment[0], 1);
    EXPECT_EQ(segment[8], 2);
    EXPECT_EQ(segment[8], segment[9]);
}

struct QuietCase
{
    const char *name;
    bool noOutput;
    bool failsToOpen;
    bool stalled;
    qint64 boundMs; // PlaySoundWait of a 0.2 s sound returns within this
};

const QuietCase quietCases[] = {
    {"noDevice", true, false, false, 150},
    {"openFails", false, true, false, 300},
    {"outputNeverTakesFrames", false, false, true, 200 + 2000 + 500},
};

class WithoutWorkingOutput : public ::testing::TestWithParam<QuietCase>
{};

TEST_P(WithoutWorkingOutput, CallsReturnAndNothingHangs)
{
    const QuietCase &c = GetParam();
    auto recording = std::make_shared<OutputRecording>();
    FakeAudioOutput::Options options = Rig::fastOptions();
    options.failsToOpen = c.failsToOpen;
    options.stalled = c.stalled;
    QElapsedTimer clock;
    clock.start();
    {
        PlaybackEngine engine([&]() -> std::unique_ptr<AudioOutput> {
            if (c.noOutput)
                return nullptr;
            return std::make_unique<FakeAudioOutput>(recording, options);
        });
        engine.play(rampSound(50000, 1), true);
        engine.stop();
        clock.restart();
        engine.playAndWait(rampSound(2205, 1)); // 0.2 s
        EXPECT_LE(clock.elapsed(), c.boundMs);
        engine.playAndWait(rampSound(2205, 1));
        engine.play(rampSound(50000, 1), true);
        EXPECT_EQ(engine.isAudible(), c.stalled);
        clock.restart();
    }
    // Destroyed in good time even with a loop still going.
    EXPECT_LE(clock.elapsed(), 1000);
}

INSTANTIATE_TEST_SUITE_P(Outputs, WithoutWorkingOutput, ::testing::ValuesIn(quietCases),
                         [](const auto &param) { return std::string(param.param.name); });

} // namespace
} // namespace klangor
