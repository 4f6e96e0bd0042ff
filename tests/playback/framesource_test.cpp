#include "fakeaudiooutput.h"
#include "playback/framesource.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

using test::rampSound;

// Reads up to limit samples, chunk samples at a time, as an output pulls.
std::vector<qint16> drain(FrameSource &source, qint64 chunk, qint64 limit)
{
    std::vector<qint16> out;
    std::vector<qint16> buffer(static_cast<std::size_t>(chunk));
    while (static_cast<qint64>(out.size()) < limit) {
        const qint64 want = std::min<qint64>(chunk, limit - static_cast<qint64>(out.size()));
        const qint64 got = source.read(reinterpret_cast<char *>(buffer.data()), want * 2) / 2;
        if (got <= 0)
            break;
        out.insert(out.end(), buffer.begin(), buffer.begin() + got);
    }
    return out;
}

struct LoopCase
{
    qint64 frames;
    qint64 chunk; // samples per read
    int channels;
};

class LoopSeams : public ::testing::TestWithParam<LoopCase>
{};

TEST_P(LoopSeams, RepeatTheSamplesExactlyWithNothingBetween)
{
    const auto [frames, chunk, channels] = GetParam();
    const auto sound = rampSound(frames, 1000, channels);
    FrameSource source;
    source.play(sound, true);
    const qint64 total = (frames * 25 + frames / 3) * channels;
    const auto out = drain(source, chunk, total);
    ASSERT_EQ(static_cast<qint64>(out.size()), total);
    for (std::size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], sound->samples[i % sound->samples.size()]) << "sample " << i;
}

// Chunks smaller, equal, larger and not a divisor of the sound; a one-frame sound; stereo.
INSTANTIATE_TEST_SUITE_P(Chunks, LoopSeams,
                         ::testing::Values(LoopCase{100, 7, 1}, LoopCase{100, 100, 1},
                                           LoopCase{100, 333, 1}, LoopCase{1, 5, 1},
                                           LoopCase{97, 64, 2}));

} // namespace
} // namespace klangor
