#include "faketoolprocess.h"
#include "programming/programmingrun.h"

#include <gtest/gtest.h>
#include <QSignalSpy>
#include <QTemporaryDir>

namespace klangor {
namespace {

using Outcome = ProgrammingRun::Outcome;

const QString Running = QString::fromUtf8("Programmierung läuft...");
const QString Done = QStringLiteral("Programmierung ist fertig!");
const QString Error = QStringLiteral("Ein Fehler ist aufgetreten!");
const QString Cancelled = QStringLiteral("Programmierung abgebrochen...");

// The values announced since the last look.
QVariantList values(QSignalSpy &spy)
{
    QVariantList result;
    for (const QVariantList &args : spy)
        result << args.at(0);
    spy.clear();
    return result;
}

// A run over fake tools, with what it announced to the window.
class ProgrammingRunTest : public ::testing::Test
{
protected:
    Outcome runWith(bool selectrix = false, int port = 1)
    {
        return m_run.run(m_names, 16, [=] { return toolCommand(selectrix, port); });
    }

    QTemporaryDir m_dir;
    test::FakeToolFactory m_tools;
    SlotFileNames m_names;
    ProgrammingRun m_run{m_dir.path(), m_tools.factory()};
    QSignalSpy m_status{&m_run, &ProgrammingRun::statusTextChanged};
    QSignalSpy m_bar{&m_run, &ProgrammingRun::progressVisibleChanged};
    QSignalSpy m_timer{&m_run, &ProgrammingRun::timerActiveChanged};
};

TEST_F(ProgrammingRunTest, ExitCodeDecidesTheStatusAndTheCommandLineFollowsTheOptions)
{
    const std::tuple<int, bool, int, QString, Outcome, QString> cases[] = {
        {0, false, 1, "sndburn.exe 1 soundlist.dat cvlist.dat", Outcome::Done, Done},
        {258, true, 2, "cvburn.exe 2 cvlist.dat", Outcome::Done, Done},
        {1, false, 3, "sndburn.exe 3 soundlist.dat cvlist.dat", Outcome::Failed, Error},
        {257, true, 4, "cvburn.exe 4 cvlist.dat", Outcome::Failed, Error},
    };
    m_names.set(1, QStringLiteral("pfiff.wav"));
    for (const auto &[exitCode, selectrix, port, commandLine, outcome, status] : cases) {
        SCOPED_TRACE(exitCode);
        m_tools.script.exitCode = exitCode;
        EXPECT_EQ(runWith(selectrix, port), outcome);
        EXPECT_EQ(values(m_status), QVariantList({Running, status}));
        EXPECT_EQ(values(m_bar), QVariantList({true, false}));
        EXPECT_EQ(values(m_timer), QVariantList({true, false}));
        // Started by bare name in the program folder, after the sound list had been written.
        const test::FakeToolRecord &tool = *m_tools.records.last();
        EXPECT_EQ(tool.commandLine, commandLine);
        EXPECT_EQ(tool.workingFolder, m_dir.path());
        EXPECT_TRUE(tool.soundListAtStart.startsWith("**16MBit\r\n00: ---\r\n01: 1.wav\r\n"));
    }
}

TEST_F(ProgrammingRunTest, StartFailuresEndTheRunWithTheirStatus)
{
    using StartError = ToolProcess::StartError;
    const std::tuple<std::optional<StartError>, bool, Outcome, QString> cases[] = {
        {StartError::NotFound, false, Outcome::NotFound, "Programmiertool nicht gefunden!"},
        {StartError::NotStartable, false, Outcome::NotStartable, "Programmiertool startet nicht!"},
        {std::nullopt, true, Outcome::NotStartable, "Programmiertool startet nicht!"},
    };
    for (const auto &[refuse, failLater, outcome, status] : cases) {
        m_tools.script.refuse = refuse;
        m_tools.script.failLaterToStart = failLater;
        EXPECT_EQ(runWith(), outcome);
        EXPECT_EQ(values(m_status), QVariantList({Running, status}));
        EXPECT_EQ(values(m_timer), QVariantList({true, false}));
    }
}

TEST_F(ProgrammingRunTest, CancelTerminatesTheRunningToolAndShowsItsText)
{
    m_tools.script.finishAfterMs.reset();
    m_tools.script.whileRunning = [this] {
        m_run.cancel();
    };
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 1);
    // The killed tool's late end changes nothing that the window shows.
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(values(m_status), QVariantList({Running, Cancelled}));
    EXPECT_EQ(values(m_bar), QVariantList({true, false}));
    EXPECT_EQ(values(m_timer), QVariantList({true, false}));
}

TEST_F(ProgrammingRunTest, CancelWithoutARunningToolTouchesNoProcess)
{
    m_run.cancel();
    ASSERT_EQ(runWith(), Outcome::Done);
    m_run.cancel();
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 0);
    EXPECT_EQ(values(m_status), QVariantList({Cancelled, Running, Done, Cancelled}));

    // A cancel handled while the sound list is written: no tool starts, the timer stays off.
    m_timer.clear();
    QMetaObject::invokeMethod(&m_run, &ProgrammingRun::cancel, Qt::QueuedConnection);
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(values(m_timer), QVariantList());
}

TEST_F(ProgrammingRunTest, ProgressWrapsAtTheMaximumAndGoesOnAcrossRuns)
{
    QSignalSpy progress(&m_run, &ProgrammingRun::progressValueChanged);
    for (int i = 0; i < 250; ++i)
        m_run.tick();
    ASSERT_EQ(runWith(), Outcome::Done);
    m_run.tick();
    ASSERT_EQ(progress.count(), 251);
    EXPECT_EQ(progress.at(98).at(0), 99);
    EXPECT_EQ(progress.at(99).at(0), 0);
    EXPECT_EQ(progress.last().at(0), 51);
}

} // namespace
} // namespace klangor
