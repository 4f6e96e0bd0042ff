#include "playback/defaultsound.h"
#include "playback/wavedecoder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

using namespace Qt::Literals::StringLiterals;

// A canonical mono 11025 Hz file whose data chunk holds exactly these bytes.
QByteArray waveWithData(int bitsPerSample, const QByteArray &data)
{
    return test::makeWav({.bitsPerSample = bitsPerSample, .dataBytes = data.size()})
        .replace(44, data.size(), data);
}

// Files are decoded to signed 16-bit samples; a missing or broken one plays the default sound.
TEST(LoadSoundOrDefault, DecodesTheSamplesOrGivesTheDefaultSound)
{
    const QByteArray eightBit = waveWithData(8, "\x00\x80\xff\x7f\x81\x01"_ba);
    const std::vector<qint16> eightBitSamples{-32768, 0, 32512, -256, 256, -32512};
    // A data size of 0xFFFFFFFF (a streaming writer's) makes no claim.
    const QByteArray noClaim = QByteArray(eightBit).replace(40, 4, "\xff\xff\xff\xff"_ba);
    const std::vector<qint16> &chime = defaultSound().samples;
    const std::tuple<const char *, std::optional<QByteArray>, std::vector<qint16>> cases[] = {
        {"8-bit is unsigned around 128", eightBit, eightBitSamples},
        {"16-bit is signed little-endian",
         waveWithData(16, "\x00\x80\xff\x7f\x01\x00\xff\xff"_ba),
         {-32768, 32767, 1, -1}},
        {"data size makes no claim", noClaim, eightBitSamples},
        {"missing", std::nullopt, chime},
        {"empty", QByteArray(), chime},
        {"text", QByteArray("this is not a wave file at all").repeated(9), chime},
        {"header cut short", eightBit.left(30), chime},
        {"data chunk cut short", eightBit.chopped(3), chime},
    };
    QTemporaryDir dir;
    for (const auto &[name, file, samples] : cases) {
        SCOPED_TRACE(name);
        const QString path = dir.filePath(QString::fromLatin1(name));
        if (file) {
            ASSERT_TRUE(test::writeFile(path, *file));
        }
        const auto sound = loadSoundOrDefault(path);
        EXPECT_EQ(sound->format, (PcmFormat{11025, 1}));
        EXPECT_EQ(sound->samples, samples);
    }
    // A FIFO is not waited on; a sparse file of eight channels at 384 kHz is cut.
    ASSERT_EQ(::mkfifo(QFile::encodeName(dir.filePath("fifo")).constData(), 0600), 0);
    EXPECT_EQ(loadSoundOrDefault(dir.filePath("fifo"))->samples, chime);
    const QByteArray header = test::makeWav({8, 384000, 16, 0}).replace(40, 4, "\0\0\x80\x0c"_ba);
    QFile huge(dir.filePath("huge"));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.write(header) && huge.resize(210 << 20));
    EXPECT_EQ(loadSoundOrDefault(huge.fileName())->samples.size(), 600u * 48000 * 2);
}

} // namespace
} // namespace klangor
