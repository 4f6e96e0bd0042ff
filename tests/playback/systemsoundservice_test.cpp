#include "fakeaudiooutput.h"
#include "playback/defaultsound.h"
#include "playback/systemsoundservice.h"
#include "soundfixtures.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QAudioDevice>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QTemporaryDir>
#include <QThread>
#include <sndfile.h>

namespace klangor {
namespace {

using test::FakeAudioOutput;
using test::OutputRecording;
using test::waitUntil;

std::vector<qint16> samplesFrom(qint16 start, int count)
{
    std::vector<qint16> samples;
    for (int i = 0; i < count; ++i)
        samples.push_back(static_cast<qint16>(start + 3 * i));
    return samples;
}

class SystemSoundServiceTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_folder.isValid());
        recording = std::make_shared<OutputRecording>();
        FakeAudioOutput::Options options;
        options.speed = 2.0;
        service = std::make_unique<SystemSoundService>(
            m_folder.path(), [rec = recording, options]() -> std::unique_ptr<AudioOutput> {
                return std::make_unique<FakeAudioOutput>(rec, options);
            });
    }

    QString path(const char *name) const { return m_folder.filePath(QLatin1String(name)); }
    void writeWorkingFile(const char *name, const std::vector<qint16> &samples)
    {
        ASSERT_TRUE(test::writeSoundFile16(path(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 11025, 1,
                                           samples));
    }

    QTemporaryDir m_folder;
    std::shared_ptr<OutputRecording> recording;
    std::unique_ptr<SystemSoundService> service;
};

TEST_F(SystemSoundServiceTest, GroupFindsBareNamesInTheProgramFolder)
{
    const auto first = samplesFrom(100, 3000);
    const auto third = samplesFrom(-20000, 2000);
    writeWorkingFile("0.wav", first);
    writeWorkingFile("2.wav", third);
    service->PlaySoundWait(QStringLiteral("0.wav"));
    service->PlaySoundWait(QStringLiteral("2.wav"));
    ASSERT_TRUE(waitUntil([&] { return recording->lastSegment().size() >= 5000; }, 5000));
    const auto segment = recording->lastSegment();
    EXPECT_TRUE(std::equal(first.begin(), first.end(), segment.begin()));
    EXPECT_TRUE(std::equal(third.begin(), third.end(), segment.begin() + 3000));
    EXPECT_EQ(recording->openings(), 1u);
}

TEST_F(SystemSoundServiceTest, MissingFilesPlayTheDefaultSound)
{
    const auto &chime = defaultSound().samples;
    const struct
    {
        const char *name;
        std::function<void(SystemSoundService &, const QString &)> call;
        std::size_t expectedSamples; // a loop goes round the chime twice and more
    } cases[] = {
        {"once", [](auto &s, const QString &p) { s.PlaySoundOnce(p); }, chime.size()},
        {"loop", [](auto &s, const QString &p) { s.PlaySoundLoop(p); }, 2 * chime.size() + 10},
        {"wait", [](auto &s, const QString &) { s.PlaySoundWait(QStringLiteral("71.wav")); },
         chime.size()},
    };
    for (const auto &c : cases) {
        c.call(*service, path("71.wav"));
        ASSERT_TRUE(
            waitUntil([&] { return recording->lastSegment().size() >= c.expectedSamples; }, 5000))
            << c.name;
        service->StopSound(QByteArray());
        const auto segment = recording->lastSegment();
        for (std::size_t i = 0; i < c.expectedSamples; ++i)
            ASSERT_EQ(segment[i], chime[i % chime.size()]) << c.name << " sample " << i;
    }
}

TEST_F(SystemSoundServiceTest, StopEndsTheLoopAndNothingFollows)
{
    writeWorkingFile("4.wav", samplesFrom(1, 800));
    service->PlaySoundLoop(path("4.wav"));
    ASSERT_TRUE(waitUntil([&] { return recording->lastSegment().size() >= 4000; }, 5000));
    service->StopSound(test::makeWav(test::WavSpec{1, 11025, 8, 1, 0}));
    ASSERT_TRUE(waitUntil([&] { return recording->closeCount() == 1; }, 2000));
    const qint64 writes = recording->totalWrites();
    QThread::msleep(60);
    EXPECT_EQ(recording->totalWrites(), writes);
}

// The service of this machine; in CI there is no sound server, and the calls must neither
// block nor fail. Where a device exists the sounds are short and still come back in time.
TEST(CreateSystemSoundService, NeitherBlocksNorFailsWithoutADevice)
{
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    test::WavSpec spec;
    spec.dataBytes = 551; // 50 ms
    test::writeFile(folder.filePath(QStringLiteral("5.wav")), test::makeWav(spec));
    const bool noDevice = QMediaDevices::defaultAudioOutput().isNull();

    QElapsedTimer clock;
    clock.start();
    {
        const auto service = createSystemSoundService(folder.path());
        service->PlaySoundLoop(folder.filePath(QStringLiteral("5.wav")));
        service->PlaySoundOnce(folder.filePath(QStringLiteral("missing.wav")));
        QElapsedTimer wait;
        wait.start();
        service->PlaySoundWait(QStringLiteral("5.wav"));
        service->PlaySoundWait(QStringLiteral("missing.wav"));
        EXPECT_LE(wait.elapsed(), noDevice ? 100 : 1500);
        service->StopSound(QByteArray(60, '\0'));
        service->PlaySoundLoop(folder.filePath(QStringLiteral("5.wav")));
    }
    EXPECT_LE(clock.elapsed(), noDevice ? 1000 : 4000);
}

} // namespace
} // namespace klangor
