#include "soundset/wavecheck.h"
#include "support/printers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QBuffer>
#include <QDir>
#include <QTemporaryDir>

namespace klangor {
namespace {

using test::makeWav;
using test::WavLayout;

UserMessage refusal(const char *text, const char *title)
{
    return {QString::fromUtf8(text), QString::fromUtf8(title)};
}

const UserMessage Format =
    refusal("Die ausgewählte Sound-Datei hat einen ungültigen Format.", "Ungültiger Soundformat");
const UserMessage Bits =
    refusal("Falsche Bitrate! Nur 8-Bit oder 16-Bit Sounds erlaubt.", "Ungültiger Bitrate");
const UserMessage Mono = refusal("Nur Mono Sounds sind erlaubt.", "Zuviel Soundkanal");
const UserMessage Rate = refusal("Nur 11-kHz Sounds sind erlaubt.", "Ungültiger Samplerate");
const UserMessage Length =
    refusal("Maximale Länge von 5.9 Sekunden überschritten.", "Zu langer Sound");

QByteArray wav(int channels, int rate, int bits, qint64 ms = 100)
{
    WavLayout layout{channels, rate, bits};
    layout.dataBytes = test::bytesForMilliseconds(ms, static_cast<quint32>(rate * bits / 8));
    return makeWav(layout);
}

std::optional<UserMessage> verdict(const Status &status)
{
    return status ? std::nullopt : std::optional(status.error());
}

// Each rule in its order: a file breaking several rules gets the first one's message.
TEST(WaveCheck, FirstBrokenRuleWins)
{
    QByteArray lowerIds = wav(1, 11025, 8);
    lowerIds.replace(0, 4, "riff").replace(8, 4, "wave");
    struct Case
    {
        const char *name;
        QByteArray file;
        std::optional<UserMessage> expected;
    } const cases[] = {
        {"8 bit", wav(1, 11025, 8), std::nullopt},
        {"16 bit", wav(1, 11025, 16), std::nullopt},
        {"lower-case ids", lowerIds, std::nullopt},
        {"other RIFF form", wav(1, 11025, 8).replace(8, 4, "AVI "), Format},
        {"text", "this is no sound at all, just some words in a file", Format},
        {"35 header bytes", wav(1, 11025, 8).left(35), Format},
        {"24 bit stereo 44.1 kHz", wav(2, 44100, 24), Bits},
        // Fields are read at fixed offsets: with a LIST chunk first, 34 holds the format tag.
        {"LIST chunk before fmt", makeWav({.chunkBeforeFormat = true}), Bits},
        {"stereo 22050 Hz, 10 s", wav(2, 22050, 16, 10000), Mono},
        {"no channels", wav(0, 11025, 8), Mono},
        {"22050 Hz, 10 s", wav(1, 22050, 8, 10000), Rate},
        {"11000 Hz", wav(1, 11000, 8), Rate},
        {"5900 ms", wav(1, 11025, 8, 5900), std::nullopt},
        {"length unknown: no data chunk", wav(1, 11025, 8, 9000).left(36), std::nullopt},
        {"5901 ms", wav(1, 11025, 8, 5901), Length},
        {"5901 ms 16 bit", wav(1, 11025, 16, 5901), Length},
    };
    QTemporaryDir dir;
    RiffWaveAudioDevice device;
    WaveChecker checker(device);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = dir.filePath("t.wav");
        ASSERT_TRUE(test::writeFile(path, c.file));
        EXPECT_EQ(verdict(checker.CheckWaveFile(path)), c.expected);
    }
    // Nothing to read: a missing file, a folder.
    ASSERT_TRUE(QDir(dir.path()).mkdir("folder.wav"));
    for (const char *name : {"missing.wav", "folder.wav"})
        EXPECT_EQ(verdict(checker.CheckWaveFile(dir.filePath(QString::fromUtf8(name)))), Format);
}

// The device's measurement: data bytes * 1000 / average bytes per second, rounded down.
// Walking the chunks is the walker's own test.
TEST(WaveLength, WalksChunksAndRoundsDown)
{
    QByteArray cut = wav(1, 11025, 8, 3000);
    cut.chop(11025);
    const struct Case
    {
        const char *name;
        QByteArray bytes;
        std::optional<qint64> ms;
    } cases[] = {
        {"rounds down", makeWav({.dataBytes = 11024}), 999},
        {"16 bit", wav(1, 11025, 16, 500), 500},
        {"cut data counts what is there", cut, 2000},
        {"no data chunk", makeWav({}).left(36), std::nullopt},
        {"zero bytes per second", makeWav({.sampleRate = 0}), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray bytes = c.bytes;
        QBuffer buffer(&bytes);
        ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
        EXPECT_EQ(measureRiffWaveMilliseconds(buffer), c.ms);
    }
}

} // namespace
} // namespace klangor
