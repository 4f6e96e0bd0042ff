#include "soundset/wavecheck.h"
#include "support/fakes.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QBuffer>
#include <QDir>
#include <QTemporaryDir>
#include <QtEndian>

namespace klangor {
namespace {

using test::makeWav;
using test::WavSpec;

const UserMessage FormatMessage{
    QString::fromUtf8("Die ausgewählte Sound-Datei hat einen ungültigen Format."),
    QString::fromUtf8("Ungültiger Soundformat"), MessageIcon::Critical};
const UserMessage BitsMessage{
    QString::fromUtf8("Falsche Bitrate! Nur 8-Bit oder 16-Bit Sounds erlaubt."),
    QString::fromUtf8("Ungültiger Bitrate"), MessageIcon::Critical};
const UserMessage MonoMessage{QString::fromUtf8("Nur Mono Sounds sind erlaubt."),
                              QString::fromUtf8("Zuviel Soundkanal"), MessageIcon::Critical};
const UserMessage RateMessage{QString::fromUtf8("Nur 11-kHz Sounds sind erlaubt."),
                              QString::fromUtf8("Ungültiger Samplerate"), MessageIcon::Critical};
const UserMessage LengthMessage{QString::fromUtf8("Maximale Länge von 5.9 Sekunden überschritten."),
                                QString::fromUtf8("Zu langer Sound"), MessageIcon::Critical};

WavSpec lasting(qint64 ms, int bits = 8)
{
    WavSpec spec;
    spec.bitsPerSample = bits;
    spec.dataBytes = test::bytesForMilliseconds(ms, static_cast<quint32>(11025 * bits / 8));
    return spec;
}

WavSpec with(std::function<void(WavSpec &)> change)
{
    WavSpec spec;
    change(spec);
    return spec;
}

struct CheckCase
{
    const char *name;
    QByteArray file;
    std::optional<UserMessage> expected; // nullopt: accepted
};

class WaveCheckTable : public ::testing::Test
{
protected:
    QTemporaryDir m_dir;
    test::RecordingMessages m_messages;
    RiffWaveAudioDevice m_device;
    WaveChecker m_checker{m_device, m_messages};

    quint8 check(const QByteArray &bytes, const QString &name = QStringLiteral("t.wav"))
    {
        const QString path = m_dir.filePath(name);
        EXPECT_TRUE(test::writeFile(path, bytes));
        return m_checker.CheckWaveFile(path);
    }
};

TEST_F(WaveCheckTable, EachRuleInOrder)
{
    QByteArray notWave = makeWav({});
    notWave.replace(8, 4, "AVI ");
    QByteArray notRiff = makeWav({});
    notRiff.replace(0, 4, "RIFX");
    QByteArray lower = makeWav({});
    lower.replace(0, 4, "riff");
    lower.replace(8, 4, "wave");

    const CheckCase cases[] = {
        {"canonical 8-bit", makeWav({}), std::nullopt},
        {"canonical 16-bit", makeWav(with([](WavSpec &s) { s.bitsPerSample = 16; })), std::nullopt},
        {"lower-case ids", lower, std::nullopt},
        {"other RIFF form", notWave, FormatMessage},
        {"not RIFF", notRiff, FormatMessage},
        {"text file", QByteArray("this is no sound at all, just some words in a file"),
         FormatMessage},
        {"empty file", QByteArray(), FormatMessage},
        {"one byte", QByteArray("R"), FormatMessage},
        {"35 bytes of header", makeWav({}).left(35), FormatMessage},
        {"24 bit", makeWav(with([](WavSpec &s) { s.bitsPerSample = 24; })), BitsMessage},
        {"24 bit stereo: only bits",
         makeWav(with([](WavSpec &s) { s.bitsPerSample = 24, s.channels = 2; })), BitsMessage},
        {"stereo", makeWav(with([](WavSpec &s) { s.channels = 2; })), MonoMessage},
        {"no channels", makeWav(with([](WavSpec &s) { s.channels = 0; })), MonoMessage},
        {"stereo at 22050: only mono",
         makeWav(with([](WavSpec &s) { s.channels = 2, s.sampleRate = 22050; })), MonoMessage},
        {"11000 Hz", makeWav(with([](WavSpec &s) { s.sampleRate = 11000; })), RateMessage},
        {"22050 Hz", makeWav(with([](WavSpec &s) { s.sampleRate = 22050; })), RateMessage},
        {"not PCM but fields fit", makeWav(with([](WavSpec &s) { s.formatTag = 2; })),
         std::nullopt},
        {"5900 ms", makeWav(lasting(5900)), std::nullopt},
        {"5901 ms", makeWav(lasting(5901)), LengthMessage},
        {"5900 ms 16-bit", makeWav(lasting(5900, 16)), std::nullopt},
        {"5901 ms 16-bit", makeWav(lasting(5901, 16)), LengthMessage},
        {"ten seconds", makeWav(lasting(10000)), LengthMessage},
    };
    for (const CheckCase &c : cases) {
        SCOPED_TRACE(c.name);
        m_messages.shown.clear();
        const quint8 result = check(c.file);
        if (c.expected) {
            EXPECT_EQ(result, 1);
            ASSERT_EQ(m_messages.shown.size(), 1);
            EXPECT_EQ(m_messages.shown.first(), *c.expected);
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(m_messages.shown.isEmpty());
        }
    }
}

TEST_F(WaveCheckTable, ChunkBeforeFormatIsJudgedByTheBytesAtFixedOffsets)
{
    // With a LIST chunk first, offset 34 holds the real format tag (1): refused for its bits.
    WavSpec listFirst;
    listFirst.chunkBeforeFormat = true;
    EXPECT_EQ(check(makeWav(listFirst)), 1);
    EXPECT_EQ(m_messages.shown.value(0), BitsMessage);

    // A JUNK chunk whose bytes happen to fit the rules lets a stereo 44.1 kHz file pass.
    WavSpec stereo;
    stereo.channels = 2;
    stereo.sampleRate = 44100;
    stereo.bitsPerSample = 16;
    const QByteArray real = makeWav(stereo);
    QByteArray junk(24, '\0');
    qToLittleEndian<qint16>(1, junk.data() + 2);     // file offset 22
    qToLittleEndian<qint32>(11025, junk.data() + 4); // file offset 24
    qToLittleEndian<qint16>(16, junk.data() + 14);   // file offset 34
    QByteArray crafted = real.left(12) + "JUNK" + QByteArray("\x18\0\0\0", 4) + junk + real.mid(12);
    m_messages.shown.clear();
    EXPECT_EQ(check(crafted, QStringLiteral("crafted.wav")), 0);
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(WaveCheckTable, FilesThatCannotBeOpenedGetTheFormatMessage)
{
    for (const QString &path : {m_dir.filePath(QStringLiteral("missing.wav")), m_dir.path()}) {
        m_messages.shown.clear();
        EXPECT_EQ(m_checker.CheckWaveFile(path), 1);
        ASSERT_EQ(m_messages.shown.size(), 1);
        EXPECT_EQ(m_messages.shown.first(), FormatMessage);
    }
    // A folder whose name ends in .wav cannot be read either.
    ASSERT_TRUE(QDir(m_dir.path()).mkdir(QStringLiteral("folder.wav")));
    m_messages.shown.clear();
    EXPECT_EQ(m_checker.CheckWaveFile(m_dir.filePath(QStringLiteral("folder.wav"))), 1);
    EXPECT_EQ(m_messages.shown.value(0), FormatMessage);
}

TEST(WaveCheck, UnknownLengthPassesAndIsMeasuredFirst)
{
    QTemporaryDir dir;
    test::RecordingMessages messages;
    test::FakeWaveAudioDevice device;
    WaveChecker checker(device, messages);

    const QString path = dir.filePath(QStringLiteral("long.wav"));
    ASSERT_TRUE(test::writeFile(path, makeWav(lasting(9000))));
    device.lengths[path] = std::nullopt; // the device cannot open it
    EXPECT_EQ(checker.CheckWaveFile(path), 0);
    EXPECT_EQ(checker.GetWaveLength(path), -1.0);

    // The length is asked for even when a header test refuses the file.
    const QString stereo = dir.filePath(QStringLiteral("stereo.wav"));
    ASSERT_TRUE(test::writeFile(stereo, makeWav(with([](WavSpec &s) { s.channels = 2; }))));
    device.measured.clear();
    EXPECT_EQ(checker.CheckWaveFile(stereo), 1);
    EXPECT_EQ(device.measured, QStringList{stereo});
}

TEST(WaveCheck, LengthIsMillisecondsOverAThousand)
{
    test::RecordingMessages messages;
    test::FakeWaveAudioDevice device;
    WaveChecker checker(device, messages);
    device.lengths[QStringLiteral("a")] = 5900;
    device.lengths[QStringLiteral("b")] = 1;
    EXPECT_DOUBLE_EQ(checker.GetWaveLength(QStringLiteral("a")), 5.9);
    EXPECT_DOUBLE_EQ(checker.GetWaveLength(QStringLiteral("b")), 0.001);
}

// The device's measurement: data bytes * 1000 / average bytes per second, rounded down.
TEST(RiffWaveMeasure, WalksChunksAndRoundsDown)
{
    struct Case
    {
        const char *name;
        QByteArray bytes;
        std::optional<qint64> ms;
    };
    WavSpec odd;
    odd.chunkBeforeFormat = true;
    odd.dataBytes = 11025;
    WavSpec zeroRate;
    zeroRate.avgBytesPerSecond = 0;
    zeroRate.sampleRate = 0;
    QByteArray truncated = makeWav(lasting(3000));
    truncated.chop(11025); // one second of samples missing
    QByteArray noData = makeWav({});
    noData.truncate(36);

    const Case cases[] = {
        {"one second", makeWav(with([](WavSpec &s) { s.dataBytes = 11025; })), 1000},
        {"rounds down", makeWav(with([](WavSpec &s) { s.dataBytes = 11024; })), 999},
        {"16-bit half second",
         makeWav(with([](WavSpec &s) { s.bitsPerSample = 16, s.dataBytes = 11025; })), 500},
        {"odd LIST chunk before fmt", makeWav(odd), 1000},
        {"truncated data counts what is there", truncated, 2000},
        {"no data chunk", noData, std::nullopt},
        {"zero bytes per second", makeWav(zeroRate), std::nullopt},
        {"not a WAV", QByteArray("RIFF...."), std::nullopt},
        {"empty", QByteArray(), std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray bytes = c.bytes;
        QBuffer buffer(&bytes);
        ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
        EXPECT_EQ(measureRiffWaveMilliseconds(buffer), c.ms);
    }
}

TEST(RiffWaveMeasure, ChunkSizePastTheEndDoesNotLoop)
{
    QByteArray bytes = "RIFF\x10\0\0\0WAVEJUNK\xff\xff\xff\x7f";
    bytes.append(QByteArray(8, 'x'));
    QBuffer buffer(&bytes);
    ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
    EXPECT_EQ(measureRiffWaveMilliseconds(buffer), std::nullopt);
}

} // namespace
} // namespace klangor
