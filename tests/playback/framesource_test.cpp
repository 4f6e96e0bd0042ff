#include "fakeaudiooutput.h"
#include "playback/framesource.h"

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

} // namespace
} // namespace klangor
