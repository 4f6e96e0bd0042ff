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

} // namespace
} // namespace klangor
