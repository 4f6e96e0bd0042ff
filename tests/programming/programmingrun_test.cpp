#include "faketoolprocess.h"
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

namespace klangor {
namespace {

using test::FakeToolFactory;
using Outcome = ProgrammingRun::Outcome;

QStringList texts(const QSignalSpy &spy)
{
    QStringList result;
    for (const QList<QVariant> &args : spy)
        result << args.at(0).toString();
    return result;
}

QList<bool> flags(const QSignalSpy &spy)
{
    QList<bool> result;
    for (const QList<QVariant> &args : spy)
        result << args.at(0).toBool();
    return result;
}

struct CommandCase
{
    bool selectrix;
    int port;
    const char *line;
};

void PrintTo(const CommandCase &c, std::ostream *os)
{
    *os << c.line;
}

class CommandLines : public ::testing::TestWithParam<CommandCase>
{};

TEST_P(CommandLines, FollowSelectrixAndPort)
{
    const CommandCase &c = GetParam();
    EXPECT_EQ(toolCommand(c.selectrix, c.port).commandLine(), QString::fromLatin1(c.line));
}

INSTANTIATE_TEST_SUITE_P(
    AllEight, CommandLines,
    ::testing::Values(CommandCase{false, 1, "sndburn.exe 1 soundlist.dat cvlist.dat"},
                      CommandCase{false, 2, "sndburn.exe 2 soundlist.dat cvlist.dat"},
                      CommandCase{false, 3, "sndburn.exe 3 soundlist.dat cvlist.dat"},
                      CommandCase{false, 4, "sndburn.exe 4 soundlist.dat cvlist.dat"},
                      CommandCase{true, 1, "cvburn.exe 1 cvlist.dat"},
                      CommandCase{true, 2, "cvburn.exe 2 cvlist.dat"},
                      CommandCase{true, 3, "cvburn.exe 3 cvlist.dat"},
                      CommandCase{true, 4, "cvburn.exe 4 cvlist.dat"}));

class ProgrammingRunTest : public ::testing::Test
{
protected:
    ProgrammingRunTest() : m_run(m_dir.path(), m_tools.factory()) {}

    Outcome runWith(bool selectrix = false, int port = 1)
    {
        return m_run.run(m_names, m_memoryMBit, [=] { return toolCommand(selectrix, port); });
    }
    void at(int ms, std::function<void()> action)
    {
        QTimer::singleShot(ms, &m_run, std::move(action));
    }

    QTemporaryDir m_dir;
    FakeToolFactory m_tools;
    SlotFileNames m_names;
    int m_memoryMBit = 16;
    ProgrammingRun m_run;
};

struct ExitCase
{
    int exitCode;
    Outcome outcome;
    const char *status;
};

void PrintTo(const ExitCase &c, std::ostream *os)
{
    *os << "exit code " << c.exitCode;
}

class ExitCodes : public ProgrammingRunTest, public ::testing::WithParamInterface<ExitCase>
{};

TEST_P(ExitCodes, DecideTheStatusAndTheWindowGoesIdle)
{
    const ExitCase &c = GetParam();
    m_tools.script.finishAfterMs = 20;
    m_tools.script.exitCode = c.exitCode;
    m_names.set(4, QStringLiteral("pfiff.wav"));
    QSignalSpy status(&m_run, &ProgrammingRun::statusTextChanged);
    QSignalSpy bar(&m_run, &ProgrammingRun::progressVisibleChanged);
    QSignalSpy timer(&m_run, &ProgrammingRun::timerActiveChanged);

    EXPECT_EQ(runWith(false, 3), c.outcome);

    EXPECT_EQ(texts(status), QStringList({QString::fromUtf8("Programmierung läuft..."),
                                          QString::fromUtf8(c.status)}));
    EXPECT_EQ(flags(bar), QList<bool>({true, false}));
    EXPECT_EQ(flags(timer), QList<bool>({true, false}));
    EXPECT_EQ(m_run.statusText(), QString::fromUtf8(c.status));
    EXPECT_FALSE(m_run.progressVisible());
    EXPECT_FALSE(m_run.timerActive());
    EXPECT_FALSE(m_run.isRunning());
    EXPECT_EQ(m_run.lastExitCode(), c.exitCode);

    // The tool was started after the sound list had been written, in the program folder.
    ASSERT_EQ(m_tools.records.size(), 1);
    const auto &record = *m_tools.records.first();
    EXPECT_EQ(record.program, QStringLiteral("sndburn.exe"));
    EXPECT_EQ(record.arguments, QStringList({"3", "soundlist.dat", "cvlist.dat"}));
    EXPECT_EQ(record.workingFolder, m_dir.path());
    EXPECT_EQ(record.soundListAtStart, soundListBytes(m_names, 16));
    EXPECT_EQ(record.terminateCalls, 0);
}

// 258 comes only from the fake: a Linux exit status keeps 8 bits.
INSTANTIATE_TEST_SUITE_P(
    Table, ExitCodes,
    ::testing::Values(ExitCase{0, Outcome::Done, "Programmierung ist fertig!"},
                      ExitCase{258, Outcome::Done, "Programmierung ist fertig!"},
                      ExitCase{1, Outcome::Failed, "Ein Fehler ist aufgetreten!"},
                      ExitCase{2, Outcome::Failed, "Ein Fehler ist aufgetreten!"},
                      ExitCase{255, Outcome::Failed, "Ein Fehler ist aufgetreten!"},
                      ExitCase{257, Outcome::Failed, "Ein Fehler ist aufgetreten!"},
                      ExitCase{134, Outcome::Failed, "Ein Fehler ist aufgetreten!"}));

TEST_F(ProgrammingRunTest, SelectrixStillWritesTheSoundList)
{
    m_tools.script.finishAfterMs = 0;
    m_memoryMBit = 2;
    EXPECT_EQ(runWith(true, 3), Outcome::Done);
    ASSERT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(m_tools.records.first()->program, QStringLiteral("cvburn.exe"));
    EXPECT_EQ(m_tools.records.first()->arguments, QStringList({"3", "cvlist.dat"}));
    EXPECT_EQ(test::readFile(m_dir.filePath(QStringLiteral("soundlist.dat"))),
              soundListBytes(SlotFileNames(), 2));
}

TEST_F(ProgrammingRunTest, CancelTerminatesTheToolAndEndsTheWait)
{
    m_tools.script.finishAfterMs.reset(); // would run for ever
    QSignalSpy status(&m_run, &ProgrammingRun::statusTextChanged);
    bool runningBeforeCancel = false;
    at(30, [&] {
        runningBeforeCancel = m_run.isRunning() && m_run.progressVisible() && m_run.timerActive();
        m_run.cancel();
    });

    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_LT(clock.elapsed(), 5000);

    EXPECT_TRUE(runningBeforeCancel);
    EXPECT_EQ(texts(status), QStringList({QString::fromUtf8("Programmierung läuft..."),
                                          QStringLiteral("Programmierung abgebrochen...")}));
    EXPECT_EQ(m_run.statusText(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(m_run.progressVisible());
    EXPECT_FALSE(m_run.timerActive());
    EXPECT_FALSE(m_run.isRunning());
    ASSERT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 1);

    // The terminated tool's late end changes nothing that the window shows.
    QCoreApplication::processEvents();
    EXPECT_EQ(m_run.statusText(), QStringLiteral("Programmierung abgebrochen..."));
    ASSERT_TRUE(m_tools.latest);
    EXPECT_FALSE(m_tools.latest->isRunning());
}

TEST_F(ProgrammingRunTest, CancelWithoutRunTouchesNoProcess)
{
    QSignalSpy bar(&m_run, &ProgrammingRun::progressVisibleChanged);
    m_run.cancel();
    EXPECT_TRUE(m_tools.records.isEmpty());
    EXPECT_EQ(m_run.statusText(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(m_run.progressVisible());
    EXPECT_FALSE(m_run.timerActive());
    EXPECT_EQ(bar.count(), 0); // it was hidden already

    // After a finished run the old tool is not the cancel's business either.
    m_tools.script.finishAfterMs = 0;
    ASSERT_EQ(runWith(), Outcome::Done);
    m_run.cancel();
    ASSERT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 0);
    EXPECT_EQ(m_run.statusText(), QStringLiteral("Programmierung abgebrochen..."));
}

TEST_F(ProgrammingRunTest, CancelWhileTheSoundListIsWrittenStartsNoTool)
{
    // ClearReadOnly lets window events run once; a cancel queued then is handled there.
    ASSERT_TRUE(test::writeFile(m_dir.filePath(QStringLiteral("soundlist.dat")), "alt"));
    QMetaObject::invokeMethod(
        &m_run, [this] { m_run.cancel(); }, Qt::QueuedConnection);
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_TRUE(m_tools.records.isEmpty());
    EXPECT_EQ(m_run.statusText(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(m_run.progressVisible());
    EXPECT_FALSE(m_run.timerActive());
    EXPECT_FALSE(m_run.isRunning());
}

TEST_F(ProgrammingRunTest, SecondRunDuringARunIsIgnored)
{
    m_tools.script.finishAfterMs = 100;
    std::optional<Outcome> second;
    QString statusDuringSecond;
    at(20, [&] {
        second = runWith(true, 4);
        statusDuringSecond = m_run.statusText();
    });
    EXPECT_EQ(runWith(), Outcome::Done);
    EXPECT_EQ(second, Outcome::Ignored);
    EXPECT_EQ(statusDuringSecond, QString::fromUtf8("Programmierung läuft..."));
    ASSERT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(m_tools.records.first()->program, QStringLiteral("sndburn.exe"));
    // And a later run starts normally.
    EXPECT_EQ(runWith(true, 4), Outcome::Done);
    EXPECT_EQ(m_tools.records.size(), 2);
}

struct StartFailureCase
{
    const char *label;
    bool startSucceeds;
    ToolProcess::StartError error;
    bool failLater;
    Outcome outcome;
    const char *status;
};

void PrintTo(const StartFailureCase &c, std::ostream *os)
{
    *os << c.label;
}

class StartFailures : public ProgrammingRunTest,
                      public ::testing::WithParamInterface<StartFailureCase>
{};

TEST_P(StartFailures, EndTheRunWithAStatusAndNoWait)
{
    const StartFailureCase &c = GetParam();
    m_tools.script.startSucceeds = c.startSucceeds;
    m_tools.script.startError = c.error;
    m_tools.script.failLaterToStart = c.failLater;
    QSignalSpy timer(&m_run, &ProgrammingRun::timerActiveChanged);

    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(runWith(), c.outcome);
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_EQ(m_run.statusText(), QString::fromUtf8(c.status));
    EXPECT_FALSE(m_run.progressVisible());
    EXPECT_EQ(flags(timer), QList<bool>({true, false}));
    EXPECT_FALSE(m_run.isRunning());
}

INSTANTIATE_TEST_SUITE_P(
    Table, StartFailures,
    ::testing::Values(StartFailureCase{"missing", false, ToolProcess::StartError::NotFound, false,
                                       Outcome::NotFound, "Programmiertool nicht gefunden!"},
                      StartFailureCase{"refused", false, ToolProcess::StartError::NotStartable,
                                       false, Outcome::NotStartable,
                                       "Programmiertool startet nicht!"},
                      StartFailureCase{"refused_later", true, ToolProcess::StartError::None, true,
                                       Outcome::NotStartable, "Programmiertool startet nicht!"}),
    [](const auto &param) { return std::string(param.param.label); });

TEST_F(ProgrammingRunTest, NoToolProcessAtAllIsAStartFailure)
{
    ProgrammingRun run(m_dir.path(), [] { return std::unique_ptr<ToolProcess>(); });
    EXPECT_EQ(run.run(m_names, 16, [] { return toolCommand(false, 1); }), Outcome::NotStartable);
    EXPECT_EQ(run.statusText(), QStringLiteral("Programmiertool startet nicht!"));
    EXPECT_FALSE(run.progressVisible());
    EXPECT_FALSE(run.timerActive());
}

struct TickCase
{
    int ticks;
    int value;
};

void PrintTo(const TickCase &c, std::ostream *os)
{
    *os << c.ticks << " ticks";
}

class ProgressTicks : public ::testing::TestWithParam<TickCase>
{};

TEST_P(ProgressTicks, WrapAtTheMaximum)
{
    ProgrammingRun run(QString(), {});
    for (int i = 0; i < GetParam().ticks; ++i)
        run.tick();
    EXPECT_EQ(run.progressValue(), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Table, ProgressTicks,
                         ::testing::Values(TickCase{0, 0}, TickCase{1, 1}, TickCase{99, 99},
                                           TickCase{100, 0}, TickCase{101, 1}, TickCase{250, 50}));

TEST_F(ProgrammingRunTest, ProgressValueIsKeptAcrossRuns)
{
    QSignalSpy values(&m_run, &ProgrammingRun::progressValueChanged);
    for (int i = 0; i < 250; ++i)
        m_run.tick();
    ASSERT_EQ(m_run.progressValue(), 50);
    EXPECT_EQ(values.count(), 250);
    EXPECT_EQ(values.at(98).at(0).toInt(), 99);
    EXPECT_EQ(values.at(99).at(0).toInt(), 0);

    m_tools.script.finishAfterMs = 0;
    int valueWhenShown = -1;
    QObject::connect(&m_run, &ProgrammingRun::progressVisibleChanged, &m_run, [&](bool visible) {
        if (visible)
            valueWhenShown = m_run.progressValue();
    });
    ASSERT_EQ(runWith(), Outcome::Done);
    EXPECT_EQ(valueWhenShown, 50);
    EXPECT_EQ(m_run.progressValue(), 50);
    m_run.tick();
    EXPECT_EQ(m_run.progressValue(), 51);
}

TEST_F(ProgrammingRunTest, DestroyedWhileWaitingLeavesTheToolRunning)
{
    m_tools.script.finishAfterMs.reset();
    auto *run = new ProgrammingRun(m_dir.path(), m_tools.factory());
    QTimer::singleShot(20, [&run] {
        delete run;
        run = nullptr;
    });
    EXPECT_EQ(run->run(m_names, 16, [] { return toolCommand(false, 2); }), Outcome::Interrupted);
    EXPECT_EQ(run, nullptr);
    ASSERT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 0);
    EXPECT_TRUE(m_tools.records.first()->destroyedWhileRunning);
}

} // namespace
} // namespace klangor
