#include "playback/defaultsound.h"
#include "playback/wavedecoder.h"
#include "soundfixtures.h"
#include "support/wavwriter.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>
#include <sndfile.h>

namespace klangor {
namespace {

using test::makeWav;
using test::WavSpec;
using test::writeFile;

// Samples that use the whole 16-bit range, both signs, and odd values.
std::vector<qint16> wideSamples(std::size_t count)
{
    std::vector<qint16> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<qint16>((static_cast<int>(i) * 7919) % 65536 - 32768);
    return samples;
}

struct DecodeCase
{
    const char *name;
    // Writes the fixture and returns what decoding must give (nullopt: unplayable).
    std::function<std::optional<PcmSound>(const QString &path)> make;
    int tolerance = 0; // allowed difference per sample (float files round)
};

std::optional<PcmSound> expected(PcmFormat format, std::vector<qint16> samples)
{
    return PcmSound{format, std::move(samples)};
}

const DecodeCase decodeCases[] = {
    {"unsigned8BitMonoBecomesSigned",
     [](const QString &path) {
         WavSpec spec;
         spec.bitsPerSample = 8;
         spec.dataBytes = 40;
         writeFile(path, makeWav(spec));
         // The writer stores 128 + (i % 16) - 8: unsigned bytes around the midpoint 128.
         std::vector<qint16> samples;
         for (int i = 0; i < 40; ++i)
             samples.push_back(static_cast<qint16>(((i % 16) - 8) * 256));
         return expected({11025, 1}, samples);
     }},
    {"signed16BitMono",
     [](const QString &path) {
         WavSpec spec;
         spec.bitsPerSample = 16;
         spec.dataBytes = 42;
         writeFile(path, makeWav(spec));
         std::vector<qint16> samples;
         for (int i = 0; i < 21; ++i)
             samples.push_back(static_cast<qint16>(((2 * i) % 7) | (((2 * i + 1) % 7) << 8)));
         return expected({11025, 1}, samples);
     }},
    {"stereo44100At16Bit",
     [](const QString &path) {
         const auto samples = wideSamples(2 * 300);
         test::writeSoundFile16(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, samples);
         return expected({44100, 2}, samples);
     }},
    {"stereo48000At24Bit",
     [](const QString &path) {
         const auto samples = wideSamples(2 * 300);
         test::writeSoundFile16(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, samples);
         return expected({48000, 2}, samples);
     }},
    {"floatMono22050",
     [](const QString &path) {
         std::vector<double> values;
         std::vector<qint16> samples;
         for (int i = 0; i < 200; ++i) {
             const double v = std::sin(i * 0.1) * 0.9;
             values.push_back(v);
             samples.push_back(static_cast<qint16>(std::lround(v * 32767)));
         }
         test::writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 22050, 1, values);
         return expected({22050, 1}, samples);
     },
     1},
    {"floatBeyondFullScaleIsClipped",
     [](const QString &path) {
         test::writeSoundFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 11025, 1, {1.5, -1.5, 0.0});
         return expected({11025, 1}, {32767, -32768, 0});
     },
     1},
    {"emptyDataChunkIsSilence",
     [](const QString &path) {
         WavSpec spec;
         spec.dataBytes = 0;
         writeFile(path, makeWav(spec));
         return expected({11025, 1}, {});
     }},
    {"missingFile",
     [](const QString &) {
         return std::optional<PcmSound>();
     }},
    {"garbage",
     [](const QString &path) {
         writeFile(path, QByteArray("this is not a wave file at all, just some text").repeated(9));
         return std::optional<PcmSound>();
     }},
    {"headerCutShort",
     [](const QString &path) {
         writeFile(path, makeWav(WavSpec{}).left(30));
         return std::optional<PcmSound>();
     }},
    {"dataCutShort",
     [](const QString &path) {
         WavSpec spec;
         spec.dataBytes = 1000;
         writeFile(path, makeWav(spec).left(44 + 500));
         return std::optional<PcmSound>();
     }},
    {"aiffIsNoWave",
     [](const QString &path) {
         test::writeSoundFile16(path, SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 11025, 1,
                                wideSamples(100));
         return std::optional<PcmSound>();
     }},
};

class DecodeWaveFile : public ::testing::TestWithParam<DecodeCase>
{};

TEST_P(DecodeWaveFile, GivesTheSamplesOrNothing)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("fixture.wav"));
    const auto want = GetParam().make(path);
    const auto got = decodeWaveFile(path);
    ASSERT_EQ(got.has_value(), want.has_value());
    if (!want)
        return;
    EXPECT_EQ(got->format, want->format);
    ASSERT_EQ(got->samples.size(), want->samples.size());
    for (std::size_t i = 0; i < want->samples.size(); ++i)
        ASSERT_LE(std::abs(got->samples[i] - want->samples[i]), GetParam().tolerance)
            << "sample " << i;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, DecodeWaveFile, ::testing::ValuesIn(decodeCases),
                         [](const auto &param) { return std::string(param.param.name); });

TEST(LoadSoundOrDefault, UnplayableFilesGiveTheDefaultSound)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString garbage = dir.filePath(QStringLiteral("garbage.wav"));
    writeFile(garbage, QByteArray(100, 'x'));
    const QString good = dir.filePath(QStringLiteral("good.wav"));
    writeFile(good, makeWav(WavSpec{}));

    const struct
    {
        QString path;
        bool isDefault;
    } cases[] = {
        {dir.filePath(QStringLiteral("missing.wav")), true},
        {garbage, true},
        {dir.path(), true}, // a folder
        {QString(), true},
        {good, false},
    };
    for (const auto &c : cases) {
        const auto sound = loadSoundOrDefault(c.path);
        ASSERT_TRUE(sound) << c.path.toStdString();
        EXPECT_EQ(sound->samples == defaultSound().samples, c.isDefault) << c.path.toStdString();
    }
}

TEST(DefaultSound, IsAShortSoftChimeThatLoopsWithoutAClick)
{
    const PcmSound &chime = defaultSound();
    EXPECT_EQ(chime.format, (PcmFormat{11025, 1}));
    EXPECT_GE(chime.durationMilliseconds(), 250);
    EXPECT_LE(chime.durationMilliseconds(), 350);
    ASSERT_FALSE(chime.samples.empty());

    int peak = 0;
    int largestStep = 0;
    for (std::size_t i = 0; i < chime.samples.size(); ++i) {
        peak = std::max(peak, std::abs(int(chime.samples[i])));
        if (i > 0)
            largestStep = std::max(largestStep, std::abs(chime.samples[i] - chime.samples[i - 1]));
    }
    // Audible but not loud.
    EXPECT_GT(peak, 32767 / 8);
    EXPECT_LT(peak, 32767 / 2);
    // Both ends at rest: the seam of a loop (last sample to first) does not jump.
    EXPECT_LE(std::abs(int(chime.samples.front())), 64);
    EXPECT_LE(std::abs(int(chime.samples.back())), 64);
    // The attack is soft: no step larger than a sine at that level makes.
    EXPECT_LT(largestStep, peak);
    // Most of the energy sits early: it decays rather than ends abruptly.
    const std::size_t tailStart = chime.samples.size() * 9 / 10;
    int tailPeak = 0;
    for (std::size_t i = tailStart; i < chime.samples.size(); ++i)
        tailPeak = std::max(tailPeak, std::abs(int(chime.samples[i])));
    EXPECT_LT(tailPeak, peak / 4);
}

} // namespace
} // namespace klangor
