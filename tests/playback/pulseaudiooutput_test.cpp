#include "fakeaudiooutput.h"
#include "playback/playbackengine.h"
#include "playback/pulseaudiooutput.h"
#include "support/standinfolder.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace klangor {
namespace {

// A sound server of the test's own, with a null sink in the working files' format; the
// output under test finds it through the environment.
class PulseServer : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_env.emplace_back("PULSE_SERVER", ("unix:" + m_runtime.filePath("native")).toLocal8Bit());
        m_env.emplace_back("PULSE_RUNTIME_PATH", m_runtime.path().toLocal8Bit());
        startServer();
    }
    void startServer()
    {
        const QString socket = m_runtime.filePath("native");
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.start("pulseaudio",
                       {"--daemonize=no", "-n", "--exit-idle-time=-1", "--use-pid-file=no",
                        "--log-level=error",
                        "--load=module-null-sink sink_name=test format=s16le rate=11025 channels=1",
                        "--load=module-native-protocol-unix auth-anonymous=1 socket=" + socket});
        ASSERT_TRUE(m_server.waitForStarted());
        ASSERT_TRUE(QTest::qWaitFor([&] { return pactl("info").contains("test"); }, 10000));
    }
    void TearDown() override
    {
        m_server.terminate();
        m_server.waitForFinished();
    }
    QString pactl(const QString &what)
    {
        QProcess process;
        process.start("pactl", what.split(' '));
        process.waitForFinished();
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    QTemporaryDir m_runtime;
    std::list<test::ScopedEnv> m_env;
    QProcess m_server;
};

// Starts, stops, loops, groups and format changes at random moments, many of them right at a
// sound's end: nothing may crash, and the server is left with the one stream of the output.
TEST_F(PulseServer, ThousandsOfStartsAndStopsAtRandomMomentsLeaveOneWorkingStream)
{
    auto owned = std::make_unique<PulseAudioOutput>();
    PulseAudioOutput &output = *owned;
    PlaybackEngine engine(std::move(owned));
    QRandomGenerator random(20261123);
    for (int round = 0; round < 3000; ++round) {
        auto sound = std::const_pointer_cast<PcmSound>(
            test::rampSound(random.bounded(20, 400), 1, random.bounded(6) == 0 ? 2 : 1));
        const int action = random.bounded(4); // once, loop, in a group, stop
        if (action < 2)
            engine.play(sound, action == 1);
        else
            action == 2 ? engine.playInGroup(sound) : engine.stop();
        // Every fourth round waits for a moment near the sound's end; the rest follow at once.
        if (random.bounded(4) == 0) {
            const qint64 at =
                output.heardPosition() + sound->frameCount() + random.bounded(-50, 50);
            (void)QTest::qWaitFor([&] { return output.heardPosition() >= at; }, 200);
        }
    }
    engine.stop();
    EXPECT_EQ(pactl("list short sink-inputs").count('\n'), 1);
    engine.playInGroup(test::rampSound(2000, 1));
    bool heard = false;
    engine.whenHeard([&] { heard = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return heard; }));
    EXPECT_GT(output.heardPosition(), 0);
}

// After a quiet spell the stream pauses, and neither side works; the next sound wakes it.
TEST_F(PulseServer, QuietStreamPausesAndTheNextSoundWakesIt)
{
    PulseAudioOutput output(100);
    FrameSource source;
    const auto corked = [&](bool yes) {
        return QTest::qWaitFor(
            [&] { return pactl("list sink-inputs").contains(yes ? "Corked: yes" : "Corked: no"); });
    };
    source.play(test::rampSound(500, 1), false);
    ASSERT_TRUE(output.start(source, {11025, 1}));
    EXPECT_TRUE(corked(true));
    const qint64 paused = output.heardPosition();
    const FrameSource::Ticket ticket = source.play(test::rampSound(500, 1), false);
    ASSERT_TRUE(output.start(source, {11025, 1}));
    EXPECT_TRUE(corked(false));
    // The second sound is heard to its end, from where the first pause left off.
    EXPECT_TRUE(QTest::qWaitFor([&] {
        const auto end = source.progress(ticket).endPosition;
        return end && output.heardPosition() >= *end;
    }));
    EXPECT_GT(*source.progress(ticket).endPosition, paused + 500);
}

// Whether the sound plays to its end on the output: heard up to the position behind it.
bool heardToEnd(PulseAudioOutput &output, const FrameSource &source, FrameSource::Ticket ticket)
{
    return QTest::qWaitFor(
        [&] {
            const auto end = source.progress(ticket).endPosition;
            return end && output.heardPosition() >= *end;
        },
        15000);
}

// A server that stops answering while a new stream is needed, and one killed and started
// again: no call waits for it, the loss is reported, and the next sound plays once it is back.
TEST_F(PulseServer, SoundComesBackAfterAStalledOrRestartedServer)
{
    for (const bool kill : {false, true}) {
        PulseAudioOutput output;
        std::atomic<int> audible = -1;
        output.setAudibleListener([&](bool yes) { audible = yes; });
        ASSERT_TRUE(QTest::qWaitFor([&] { return audible == 1; }));
        FrameSource source;
        if (kill) {
            m_server.kill();
            m_server.waitForFinished();
        } else {
            ::kill(pid_t(m_server.processId()), SIGSTOP);
        }
        // 48000 Hz stereo needs a stream of its own, which the server does not open now.
        const FrameSource::Ticket ticket = source.play(test::rampSound(4000, 1, 2), false);
        QElapsedTimer clock;
        clock.start();
        output.start(source, {48000, 2});
        (void)output.heardPosition();
        EXPECT_LT(clock.elapsed(), 50) << kill;
        EXPECT_TRUE(QTest::qWaitFor([&] { return audible == 0; })) << kill;
        if (kill)
            startServer();
        else
            ::kill(pid_t(m_server.processId()), SIGCONT);
        // The sound that waited plays, and so does the next.
        EXPECT_TRUE(heardToEnd(output, source, ticket)) << kill;
        EXPECT_EQ(audible, 1);
        const FrameSource::Ticket next = source.play(test::rampSound(4000, 1, 2), false);
        EXPECT_TRUE(output.start(source, {48000, 2}));
        EXPECT_TRUE(heardToEnd(output, source, next)) << kill;
    }
}

// A loop goes on on the new default sink.
TEST_F(PulseServer, ALoopFollowsAChangedDefaultSink)
{
    pactl("load-module module-null-sink sink_name=other format=s16le rate=11025 channels=1");
    PulseAudioOutput output;
    FrameSource source;
    source.play(test::rampSound(1000, 1), true);
    ASSERT_TRUE(output.start(source, {11025, 1}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return output.heardPosition() > 2000; }));
    pactl("set-default-sink other");
    const QString other = pactl("list short sinks").section("\tother", 0, 0).section('\n', -1);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        return pactl("list short sink-inputs")
            .contains(QRegularExpression("^\\d+\\t" + other + "\\t"));
    }));
    const qint64 moved = output.heardPosition();
    EXPECT_TRUE(QTest::qWaitFor([&] { return output.heardPosition() > moved + 11025; }));
}

TEST(PulseAudioOutput, WithoutAServerNothingStarts)
{
    QTemporaryDir nowhere;
    test::ScopedEnv server("PULSE_SERVER", ("unix:" + nowhere.filePath("none")).toLocal8Bit());
    PulseAudioOutput output;
    FrameSource source;
    EXPECT_TRUE(QTest::qWaitFor([&] { return !output.start(source, {11025, 1}); }));
    EXPECT_EQ(output.heardPosition(), 0);
}

} // namespace
} // namespace klangor
