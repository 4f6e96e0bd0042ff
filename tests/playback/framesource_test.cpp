#include "fakeaudiooutput.h"
#include "playback/framesource.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace klangor {
namespace {

// Chunks smaller, equal, larger and not a divisor of the sound; a one-frame sound; stereo.
TEST(FrameSource, LoopsRepeatTheSamplesExactlyWithNothingBetween)
{
    const std::tuple<qint64, qint64, int> cases[] = {
        {100, 7, 1}, {100, 100, 1}, {100, 333, 1}, {1, 5, 1}, {97, 64, 2}};
    for (const auto &[frames, chunk, channels] : cases) {
        const auto sound = test::rampSound(frames, 1000, channels);
        FrameSource source;
        source.play(sound, true);
        source.restart();
        // Reads as an output pulls, chunk frames at a time, across many seams.
        std::vector<qint16> out(static_cast<std::size_t>(frames * 25 * channels));
        for (qint64 done = 0; done < frames * 25; done += chunk) {
            const qint64 n = std::min(chunk, frames * 25 - done);
            ASSERT_TRUE(source.read(&out[std::size_t(done * channels)], n, channels, done));
        }
        for (std::size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(out[i], sound->samples[i % sound->samples.size()]) << frames << "/" << chunk;
    }
}

// A sound read to its end, or dropped for its layout, is freed by the next enqueue: the reader
// may be an output's real-time thread, which must not free a long sound's samples.
TEST(FrameSource, TheReaderNeverFreesASound)
{
    FrameSource source;
    auto mono = test::rampSound(10, 1);
    auto stereo = test::rampSound(10, 1, 2);
    const std::weak_ptr<const PcmSound> sounds[] = {mono, stereo};
    source.enqueue(std::move(mono));
    source.enqueue(std::move(stereo));
    source.restart();
    std::vector<qint16> out(20);
    source.read(out.data(), 20, 1, 0);
    EXPECT_FALSE(sounds[0].expired() || sounds[1].expired());
    source.enqueue(nullptr);
    EXPECT_TRUE(sounds[0].expired() && sounds[1].expired());
}

// An output rewrites stretches it wrote before: the same positions give the same frames, a
// sound queued after the others ran out starts right behind them, and after a clear nothing
// new starts before the output says where.
TEST(FrameSource, ReadingAStretchAgainGivesTheSameFrames)
{
    FrameSource source;
    const auto a = test::rampSound(100, 1000);
    const auto b = test::rampSound(50, 3000);
    source.enqueue(a);
    std::optional<qint64> behind = 0;
    const FrameSource::Ticket tb = source.enqueue(b, false, &behind);
    EXPECT_EQ(behind, std::nullopt); // a is not read yet
    std::vector<qint16> first(300);
    for (qint64 at = 0; at < 300; at += 7)
        source.read(&first[std::size_t(at)], std::min<qint64>(7, 300 - at), 1, at);
    ASSERT_EQ(source.progress(tb).endPosition, 150);
    EXPECT_TRUE(std::equal(a->samples.begin(), a->samples.end(), first.begin()));
    const auto c = test::rampSound(40, 6000);
    source.enqueue(c, true, &behind); // joins b, though 150 frames behind it were written already
    EXPECT_EQ(behind, 150);
    std::vector<qint16> again(150);
    source.read(again.data(), 150, 1, 150);
    for (std::size_t i = 0; i < 150; ++i)
        ASSERT_EQ(again[i], c->samples[i % 40]) << i;
    std::vector<qint16> third(60);
    source.read(third.data(), 60, 1, 217);
    EXPECT_TRUE(std::equal(third.begin(), third.end(), again.begin() + 67));

    source.play(a, false);
    EXPECT_FALSE(source.read(again.data(), 10, 1, 300));
    source.restart();
    source.read(again.data(), 10, 1, 305);
    EXPECT_EQ(again[0], a->samples[0]);
}

} // namespace
} // namespace klangor
