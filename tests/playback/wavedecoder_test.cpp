#include "playback/defaultsound.h"
#include "playback/wavedecoder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <QtEndian>

namespace klangor {
namespace {

using test::makeWav;
using test::WavSpec;
using test::writeFile;

// A canonical mono 11025 Hz file whose data chunk holds exactly these bytes.
QByteArray waveWithData(int bitsPerSample, const QByteArray &data)
{
    WavSpec spec;
    spec.bitsPerSample = bitsPerSample;
    spec.dataBytes = data.size();
    return makeWav(spec).replace(44, data.size(), data);
}

TEST(DecodeWaveFile, GivesSigned16BitSamples)
{
    const struct
    {
        const char *name;
        QByteArray file;
        std::vector<qint16> samples;
    } cases[] = {
        {"8-bit is unsigned around 128",
         waveWithData(8, QByteArray("\x00\x80\xff\x7f\x81", 5)),
         {-32768, 0, 32512, -256, 256}},
        {"16-bit is signed little-endian",
         waveWithData(16, QByteArray("\x00\x80\xff\x7f\x01\x00\xff\xff", 8)),
         {-32768, 32767, 1, -1}},
    };
    QTemporaryDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = dir.filePath(QStringLiteral("sound.wav"));
        ASSERT_TRUE(writeFile(path, c.file));
        const auto sound = decodeWaveFile(path);
        ASSERT_TRUE(sound);
        EXPECT_EQ(sound->format, (PcmFormat{11025, 1}));
        EXPECT_EQ(sound->samples, c.samples);
    }
}

// A file that is missing or broken plays the default sound; a data size of 0xFFFFFFFF (a
// streaming writer's) makes no claim, and the samples that are there play.
TEST(LoadSoundOrDefault, BrokenFilesGiveTheDefaultSound)
{
    const QByteArray whole = makeWav(WavSpec{});
    QByteArray noClaim = whole;
    qToLittleEndian<quint32>(0xFFFFFFFFu, noClaim.data() + 40);
    const struct
    {
        const char *name;
        std::optional<QByteArray> file; // nullopt: no file at all
        bool isDefault;
    } cases[] = {
        {"missing", std::nullopt, true},
        {"empty", QByteArray(), true},
        {"one byte", QByteArray("R"), true},
        {"text", QByteArray("this is not a wave file at all").repeated(9), true},
        {"header cut short", whole.left(30), true},
        {"data chunk cut short", whole.left(whole.size() - 500), true},
        {"data size makes no claim", noClaim, false},
        {"whole file", whole, false},
    };
    QTemporaryDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = dir.filePath(QString::fromLatin1(c.name) + QStringLiteral(".wav"));
        if (c.file) {
            ASSERT_TRUE(writeFile(path, *c.file));
        }
        const auto sound = loadSoundOrDefault(path);
        ASSERT_TRUE(sound);
        EXPECT_EQ(sound->samples == defaultSound().samples, c.isDefault);
    }
}

} // namespace
} // namespace klangor
