#include "fakeaudiooutput.h"
#include "playback/systemsoundservice.h"
#include "playback/wavedecoder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <QTest>

namespace klangor {
namespace {

TEST(SystemSoundService, PlaySoundWaitFindsBareNamesInTheProgramFolder)
{
    QTemporaryDir folder;
    ASSERT_TRUE(test::writeFile(folder.filePath("7.wav"), test::makeWav({.dataBytes = 300})));
    test::OutputRecording recording;
    SystemSoundService service(folder.path(), std::make_unique<test::FakeAudioOutput>(recording));
    service.PlaySoundWait("7.wav");
    bool heard = false;
    service.WhenSoundsHeard([&] { heard = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return heard; }));
    // The file's samples, not the default sound.
    const auto file = decodeWaveFile(folder.filePath("7.wav"));
    ASSERT_TRUE(file);
    const auto &stream = recording.at(0);
    EXPECT_NE(std::search(stream.begin(), stream.end(), file->samples.begin(), file->samples.end()),
              stream.end());
}

// Without a sound server, or with an output that will not open, every call comes back silent
// and the user hears of it once.
TEST(SystemSoundService, NothingAudibleIsToldOncePerRun)
{
    test::OutputRecording recording;
    for (const bool present : {false, true}) {
        std::unique_ptr<AudioOutput> output;
        if (present)
            output = std::make_unique<test::FakeAudioOutput>(recording, false);
        QStringList told;
        SystemSoundService service(QString(), std::move(output),
                                   [&](const UserMessage &message) { told << message.text; });
        service.PlaySoundOnce("a.wav");
        service.PlaySoundLoop("a.wav");
        service.PlaySoundWait("1.wav");
        service.StopSound(); // every call comes back, silent
        EXPECT_TRUE(recording.empty());
        ASSERT_EQ(told.size(), 1);
        EXPECT_TRUE(told[0].startsWith("Es ist keine Tonausgabe verfügbar"));
    }
}

} // namespace
} // namespace klangor
