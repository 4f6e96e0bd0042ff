#include "fakeaudiooutput.h"
#include "playback/pipewireoutput.h"
#include "playback/playbackengine.h"
#include "playback/pulseaudiooutput.h"
#include "support/soundserver.h"
#include "support/standinfolder.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace klangor {
namespace {

// Each output against a private server of its own kind, with a null sink in the working
// files' format; the output finds the server through the environment.
class ServerOutput : public ::testing::TestWithParam<const char *>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_server.emplace(QString::fromLatin1(GetParam()), m_dir.path());
        m_env.emplace_back("PULSE_SERVER", ("unix:" + m_server->socket()).toLocal8Bit());
        m_env.emplace_back("PULSE_RUNTIME_PATH", (m_server->runtime() + "/pulse").toLocal8Bit());
        m_env.emplace_back("PIPEWIRE_RUNTIME_DIR", m_server->runtime().toLocal8Bit());
        startServer();
    }
    void startServer()
    {
        ASSERT_TRUE(m_server->start());
        ASSERT_TRUE(m_server->loadNullSink("test", 11025, 1));
    }
    bool pipewire() const { return GetParam() == std::string_view("pipewire"); }
    std::unique_ptr<AudioOutput> makeOutput(int idleMs = 3000)
    {
        if (pipewire())
            return std::make_unique<PipeWireOutput>(idleMs);
        return std::make_unique<PulseAudioOutput>(idleMs);
    }
    QString pactl(const QString &what) { return m_server->pactl(what.split(' ')).value_or(""); }

    QTemporaryDir m_dir;
    std::optional<test::SoundServer> m_server;
    std::list<test::ScopedEnv> m_env;
};

INSTANTIATE_TEST_SUITE_P(Servers, ServerOutput, ::testing::Values("pulseaudio", "pipewire"),
                         [](const auto &param) { return std::string(param.param); });

// PipeWire's own protocol is taken only from a PipeWire server with a sink: one that runs
// beside PulseAudio for screen sharing has none. A loop that loses the only sink is no longer
// heard, and the output says so (PipeWire plays it on to a stand-in).
TEST_P(ServerOutput, PipeWirePlaysOnlyWhereItHasASinkAndALostSinkIsTold)
{
    EXPECT_EQ(PipeWireOutput().playsSound(), pipewire());
    FrameSource source;
    std::atomic<bool> audible = true;
    std::unique_ptr<AudioOutput> output = makeOutput();
    output->setAudibleListener([&](bool now) { audible = now; });
    source.play(test::rampSound(1000, 1), true);
    ASSERT_TRUE(output->start(source, {11025, 1}));
    ASSERT_TRUE(QTest::qWaitFor([&] { return output->heardPosition() > 2000; }));
    for (const QString &module : pactl("list short modules").split('\n'))
        if (module.contains("module-null-sink"))
            pactl("unload-module " + module.section('\t', 0, 0));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !audible; }));
    EXPECT_FALSE(PipeWireOutput().playsSound());
}

// Starts, stops, loops, groups and format changes at random moments, many of them right at a
// sound's end: nothing may crash, and the server is left with the one stream of the output.
TEST_P(ServerOutput, ThousandsOfStartsAndStopsAtRandomMomentsLeaveOneWorkingStream)
{
    std::unique_ptr<AudioOutput> owned = makeOutput();
    AudioOutput &output = *owned;
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
    EXPECT_TRUE(QTest::qWaitFor([&] { return pactl("list short sink-inputs").count('\n') == 1; }));
    engine.playInGroup(test::rampSound(2000, 1));
    bool heard = false;
    engine.whenHeard([&] { heard = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return heard; }));
    EXPECT_GT(output.heardPosition(), 0);
}

// A sound of another format is read from the new stream's first position on: the stream it
// replaces, still playing while it goes, never reads it at its own.
TEST_P(ServerOutput, ASoundOfAnotherFormatStartsWhereTheNewStreamStarts)
{
    FrameSource source;
    std::unique_ptr<AudioOutput> output = makeOutput();
    for (int round = 0; round < 150; ++round) {
        const FrameSource::Ticket ticket = source.play(test::rampSound(200, 1), false);
        ASSERT_TRUE(output->start(source, {round % 2 ? 22050 : 11025, 1}));
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return source.progress(ticket).endPosition.has_value(); }));
        ASSERT_EQ(*source.progress(ticket).endPosition, 200) << round;
    }
}

// Whether the sound plays to its end on the output: heard up to the position behind it.
bool heardToEnd(AudioOutput &output, const FrameSource &source, FrameSource::Ticket ticket)
{
    return QTest::qWaitFor(
        [&] {
            const auto end = source.progress(ticket).endPosition;
            return end && output.heardPosition() >= *end;
        },
        15000);
}

// After a quiet spell the stream pauses, and neither side works; the next sound wakes it.
TEST_P(ServerOutput, QuietStreamPausesAndTheNextSoundWakesIt)
{
    FrameSource source; // outlives the output's thread, which reads it
    std::unique_ptr<AudioOutput> owned = makeOutput(100);
    AudioOutput &output = *owned;
    const auto corked = [&](bool yes) {
        return QTest::qWaitFor(
            [&] { return pactl("list sink-inputs").contains(yes ? "Corked: yes" : "Corked: no"); });
    };
    const FrameSource::Ticket first = source.play(test::rampSound(500, 1), false);
    ASSERT_TRUE(output.start(source, {11025, 1}));
    ASSERT_TRUE(heardToEnd(output, source, first));
    EXPECT_TRUE(corked(true));
    const qint64 paused = output.heardPosition();
    const FrameSource::Ticket ticket = source.play(test::rampSound(500, 1), false);
    ASSERT_TRUE(output.start(source, {11025, 1}));
    EXPECT_TRUE(corked(false));
    // The second sound is heard to its end, not before where the first pause left off.
    EXPECT_TRUE(heardToEnd(output, source, ticket));
    EXPECT_GE(*source.progress(ticket).endPosition, paused + 500);
}

// A server that stops answering while a new stream is needed, and one killed and started
// again: no call waits for it, the loss is reported, and the next sound plays once it is back.
TEST_P(ServerOutput, SoundComesBackAfterAStalledOrRestartedServer)
{
    for (const bool kill : {false, true}) {
        FrameSource source;
        std::atomic<int> audible = -1;
        std::unique_ptr<AudioOutput> owned = makeOutput();
        AudioOutput &output = *owned;
        output.setAudibleListener([&](bool yes) { audible = yes; });
        ASSERT_TRUE(QTest::qWaitFor([&] { return audible == 1; }));
        const auto pid = pid_t(m_server->serverPid());
        if (kill)
            m_server->kill();
        else
            ::kill(pid, SIGSTOP);
        if (pipewire() && !kill) { // a program started now does not wait for it either
            QElapsedTimer starting;
            starting.start();
            EXPECT_FALSE(PipeWireOutput().playsSound());
            EXPECT_LT(starting.elapsed(), 1000); // its 40 ms, not until the server goes on
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
            ::kill(pid, SIGCONT);
        // The sound that waited plays, and so does the next.
        EXPECT_TRUE(heardToEnd(output, source, ticket)) << kill;
        EXPECT_EQ(audible, 1);
        const FrameSource::Ticket next = source.play(test::rampSound(4000, 1, 2), false);
        EXPECT_TRUE(output.start(source, {48000, 2}));
        EXPECT_TRUE(heardToEnd(output, source, next)) << kill;
    }
}

// A loop goes on on the new default sink.
TEST_P(ServerOutput, ALoopFollowsAChangedDefaultSink)
{
    ASSERT_TRUE(m_server->loadNullSink("other", 11025, 1));
    FrameSource source;
    std::unique_ptr<AudioOutput> owned = makeOutput();
    AudioOutput &output = *owned;
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

TEST(AudioOutput, WithoutAServerNothingStarts)
{
    QTemporaryDir nowhere;
    test::ScopedEnv pulse("PULSE_SERVER", ("unix:" + nowhere.filePath("none")).toLocal8Bit());
    test::ScopedEnv pipewire("PIPEWIRE_RUNTIME_DIR", nowhere.path().toLocal8Bit());
    auto native = std::make_unique<PipeWireOutput>();
    EXPECT_FALSE(native->playsSound());
    std::unique_ptr<AudioOutput> outputs[] = {std::move(native),
                                              std::make_unique<PulseAudioOutput>()};
    for (const auto &output : outputs) {
        FrameSource source;
        EXPECT_TRUE(QTest::qWaitFor([&] { return !output->start(source, {11025, 1}); }));
        EXPECT_EQ(output->heardPosition(), 0);
    }
}

} // namespace
} // namespace klangor
