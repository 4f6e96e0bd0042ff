#include "playback/framesource.h"
#include "soundfixtures.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

using test::rampSound;

// Reads everything the source gives, chunk frames at a time, up to limit frames.
std::vector<qint16> drain(FrameSource &source, qint64 chunk, qint64 limit, int channels = 1)
{
    std::vector<qint16> out;
    std::vector<qint16> buffer(static_cast<std::size_t>(chunk * channels));
    while (static_cast<qint64>(out.size()) / channels < limit) {
        const qint64 want = std::min(chunk, limit - static_cast<qint64>(out.size()) / channels);
        const qint64 got = source.read(buffer.data(), want);
        if (got == 0)
            break;
        out.insert(out.end(), buffer.begin(), buffer.begin() + got * channels);
    }
    return out;
}

struct LoopCase
{
    qint64 soundFrames;
    qint64 chunk;
    int channels;
};

class LoopSeams : public ::testing::TestWithParam<LoopCase>
{};

TEST_P(LoopSeams, RepeatTheSamplesExactlyWithNothingBetween)
{
    const auto [frames, chunk, channels] = GetParam();
    const auto sound = rampSound(frames, 1000, 11025, channels);
    FrameSource source;
    source.play(sound, true);
    const qint64 total = frames * 25 + frames / 3;
    const auto out = drain(source, chunk, total, channels);
    ASSERT_EQ(static_cast<qint64>(out.size()), total * channels);
    for (std::size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], sound->samples[i % sound->samples.size()]) << "sample " << i;
    EXPECT_FALSE(source.isEmpty()); // a loop never runs out
}

// Chunks smaller, equal, larger and not a divisor of the sound; a one-frame sound.
INSTANTIATE_TEST_SUITE_P(Chunks, LoopSeams,
                         ::testing::Values(LoopCase{100, 7, 1}, LoopCase{100, 100, 1},
                                           LoopCase{100, 333, 1}, LoopCase{1, 5, 1},
                                           LoopCase{97, 64, 2}, LoopCase{2756, 4096, 1}));

TEST(FrameSourceQueue, TwoSoundsComeOutBackToBackWithExactCount)
{
    const struct
    {
        qint64 first, second, chunk;
    } cases[] = {{100, 50, 7}, {100, 50, 1000}, {1, 1, 1}, {4096, 4096, 4096}, {10, 3000, 64}};
    for (const auto &c : cases) {
        const auto a = rampSound(c.first, 0);
        const auto b = rampSound(c.second, 20000);
        FrameSource source;
        const auto ta = source.enqueue(a);
        const auto tb = source.enqueue(b);
        const auto out = drain(source, c.chunk, 1'000'000);
        std::vector<qint16> want = a->samples;
        want.insert(want.end(), b->samples.begin(), b->samples.end());
        EXPECT_EQ(out, want) << c.first << "+" << c.second << " by " << c.chunk;
        EXPECT_TRUE(source.isEmpty());
        EXPECT_TRUE(source.isHandedOver(ta));
        EXPECT_TRUE(source.isHandedOver(tb));
    }
}

TEST(FrameSourceQueue, TicketIsHandedOverOnlyAfterItsLastFrame)
{
    FrameSource source;
    const auto ta = source.enqueue(rampSound(10, 0));
    const auto tb = source.enqueue(rampSound(10, 100));
    std::vector<qint16> buffer(20);
    EXPECT_EQ(source.read(buffer.data(), 9), 9);
    EXPECT_FALSE(source.isHandedOver(ta));
    EXPECT_EQ(source.read(buffer.data(), 1), 1);
    EXPECT_TRUE(source.isHandedOver(ta));
    EXPECT_FALSE(source.isHandedOver(tb));
    EXPECT_EQ(source.read(buffer.data(), 20), 10);
    EXPECT_TRUE(source.isHandedOver(tb));
}

TEST(FrameSourceQueue, PlayDropsWhatWasQueuedAndPlayingLoop)
{
    FrameSource source;
    const auto loopTicket = source.play(rampSound(10, 0), true);
    std::vector<qint16> buffer(64);
    source.read(buffer.data(), 25); // in the middle of the loop's third round
    const auto b = rampSound(5, 500);
    source.play(b, false);
    EXPECT_TRUE(source.isHandedOver(loopTicket));
    EXPECT_EQ(drain(source, 64, 1000), b->samples);
}

TEST(FrameSourceQueue, SoundsWithoutFramesAreOverAtOnce)
{
    for (const bool loop : {false, true}) {
        FrameSource source;
        const auto empty = std::make_shared<const PcmSound>();
        const auto ticket = source.play(empty, loop);
        EXPECT_TRUE(source.isEmpty());
        EXPECT_TRUE(source.isHandedOver(ticket));
        std::vector<qint16> buffer(8);
        EXPECT_EQ(source.read(buffer.data(), 8), 0);
    }
}

TEST(FrameSourceQueue, ReadStopsWhereAnotherFormatBegins)
{
    FrameSource source;
    const auto a = rampSound(10, 0, 11025);
    const auto b = rampSound(10, 100, 22050);
    source.enqueue(a);
    source.enqueue(b);
    std::vector<qint16> buffer(64);
    EXPECT_EQ(source.read(buffer.data(), 64), 10);
    EXPECT_EQ(source.headFormat(), (PcmFormat{22050, 1}));
    source.convertHead({11025, 1});
    EXPECT_EQ(source.headFormat(), (PcmFormat{11025, 1}));
    EXPECT_EQ(source.read(buffer.data(), 64), 5); // half the frames at half the rate
}

} // namespace
} // namespace klangor
