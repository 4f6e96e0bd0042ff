#include "fakeaudiooutput.h"
#include "playback/systemsoundservice.h"
#include "playback/wavedecoder.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
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

// A long file of the browser is read off the window's thread and plays unless another sound
// was asked for meanwhile.
TEST(SystemSoundService, ALongFileIsReadAsideAndDroppedWhenOvertaken)
{
    QTemporaryDir folder;
    const auto longFile = [&](const char *name, int rate) {
        const QString path = folder.filePath(name);
        EXPECT_TRUE(test::writeFile(
            path,
            test::makeWav(
                {.channels = 2, .sampleRate = rate, .bitsPerSample = 16, .dataBytes = 5 << 20})));
        return path;
    };
    const QString first = longFile("48k.wav", 48000), second = longFile("44k.wav", 44100);
    ASSERT_TRUE(test::writeFile(folder.filePath("short.wav"), test::makeWav({})));
    test::OutputRecording recording;
    auto owned = std::make_unique<test::FakeAudioOutput>(recording);
    const test::FakeAudioOutput &output = *owned;
    SystemSoundService service(folder.path(), std::move(owned));

    service.PlaySoundOnce(first);
    service.PlaySoundLoop(folder.filePath("short.wav")); // at once: the long read comes too late
    service.PlaySoundOnce(second);
    ASSERT_TRUE(QTest::qWaitFor([&] { return output.streamRates.back() == 44100; }, 20000));
    EXPECT_EQ(output.streamRates, (std::vector<int>{11025, 44100}));
}

// Without a sound server, or with an output that will not open, every call comes back silent
// and the user hears of it once per loss: again after sound was back and was lost again.
TEST(SystemSoundService, NothingAudibleIsToldOncePerLoss)
{
    test::OutputRecording recording;
    QStringList told;
    const auto tell = [&](const UserMessage &message) {
        told << message.text;
    };
    const auto playAll = [](SystemSoundService &service) {
        service.PlaySoundOnce("a.wav");
        service.PlaySoundLoop("a.wav");
        service.PlaySoundWait("1.wav");
        service.StopSound(); // every call comes back, silent
    };
    SystemSoundService none(QString(), nullptr, tell);
    playAll(none);
    EXPECT_EQ(told.size(), 1);

    auto owned = std::make_unique<test::FakeAudioOutput>(recording, false);
    test::FakeAudioOutput &output = *owned;
    SystemSoundService service(QString(), std::move(owned), tell);
    playAll(service);
    EXPECT_TRUE(recording.empty());
    ASSERT_EQ(told.size(), 2);
    EXPECT_TRUE(told[1].startsWith("Es ist keine Tonausgabe verfügbar"));
    output.setOpens(true); // back: heard without a word
    QCoreApplication::processEvents();
    service.PlaySoundLoop("a.wav");
    EXPECT_EQ(told.size(), 2);
    output.setOpens(false); // lost while the loop plays: told at once
    EXPECT_TRUE(QTest::qWaitFor([&] { return told.size() == 3; }));
    playAll(service);
    EXPECT_EQ(told.size(), 3);

    // Lost after a short sound has ended: told with the next sound, not to a user who does
    // not listen.
    QTemporaryDir folder;
    const QString blip = folder.filePath("blip.wav");
    ASSERT_TRUE(test::writeFile(blip, test::makeWav({.dataBytes = 10})));
    output.setOpens(true);
    QCoreApplication::processEvents();
    service.PlaySoundOnce(blip);
    output.setOpens(false);
    QCoreApplication::processEvents();
    EXPECT_EQ(told.size(), 3);
    service.PlaySoundOnce(blip);
    EXPECT_EQ(told.size(), 4);
}

} // namespace
} // namespace klangor
