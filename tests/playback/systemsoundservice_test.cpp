#include "fakeaudiooutput.h"
#include "playback/systemsoundservice.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(SystemSoundService, PlaySoundWaitFindsBareNamesInTheProgramFolder)
{
    QTemporaryDir folder;
    test::WavSpec spec;
    spec.dataBytes = 300;
    ASSERT_TRUE(test::writeFile(folder.filePath(QStringLiteral("7.wav")), test::makeWav(spec)));
    test::OutputRecording recording;
    SystemSoundService service(folder.path(), std::make_unique<test::FakeAudioOutput>(recording));
    service.PlaySoundWait(QStringLiteral("7.wav"));
    EXPECT_EQ(recording.lastSize(), 300u); // the file's samples, not the default sound
}

// The service of this machine: without a sound server (as in CI) every call comes back.
TEST(CreateSystemSoundService, CallsComeBackWithOrWithoutADevice)
{
    QTemporaryDir folder;
    test::WavSpec spec;
    spec.dataBytes = 551; // 50 ms
    const QString path = folder.filePath(QStringLiteral("5.wav"));
    ASSERT_TRUE(test::writeFile(path, test::makeWav(spec)));
    const auto service = createSystemSoundService(folder.path());
    service->PlaySoundLoop(path);
    service->PlaySoundOnce(folder.filePath(QStringLiteral("missing.wav")));
    service->PlaySoundWait(QStringLiteral("5.wav"));
    service->PlaySoundWait(QStringLiteral("missing.wav"));
    service->StopSound();
    service->PlaySoundLoop(path);
}

} // namespace
} // namespace klangor
