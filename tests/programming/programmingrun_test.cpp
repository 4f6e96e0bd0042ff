#include "faketoolprocess.h"
#include "programming/programmingrun.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>

namespace klangor {
namespace {

using Outcome = ProgrammingRun::Outcome;

const QString Done = "Programmierung ist fertig!";

// What the window is told during a run that ends with this status.
QStringList aRun(const QString &status)
{
    return {
        QString::fromUtf8("Programmierung läuft..."), "bar", "timer", status, "no bar", "no timer"};
}

// A run over fake tools, with all it told the window in order.
class ProgrammingRunTest : public ::testing::Test
{
protected:
    ProgrammingRunTest()
    {
        QObject::connect(&m_run, &ProgrammingRun::statusTextChanged,
                         [this](const QString &text) { m_shown << text; });
        QObject::connect(&m_run, &ProgrammingRun::progressVisibleChanged,
                         [this](bool on) { m_shown << (on ? "bar" : "no bar"); });
        QObject::connect(&m_run, &ProgrammingRun::timerActiveChanged,
                         [this](bool on) { m_shown << (on ? "timer" : "no timer"); });
    }
    // Starts a run and waits for its end.
    Outcome runWith(bool selectrix = false, int port = 1)
    {
        QSignalSpy ended(&m_run, &ProgrammingRun::finished);
        EXPECT_TRUE(m_run.start(m_names, 16, [=] { return toolCommand(selectrix, port); }));
        if (m_run.isRunning()) {
            EXPECT_FALSE(m_run.start(m_names, 16, {})); // one run at a time, nothing changes
        }
        return ended.size() == 1 || ended.wait(60000) ? ended.first().first().value<Outcome>()
                                                      : Outcome(-1);
    }
    QStringList shown() { return std::exchange(m_shown, {}); }

    QTemporaryDir m_dir;
    test::FakeToolFactory m_tools;
    SlotFileNames m_names;
    ProgrammingRun m_run{m_dir.path(), m_tools.factory()};
    QStringList m_shown;
};

TEST_F(ProgrammingRunTest, ExitCodeDecidesTheStatusAndTheCommandLineFollowsTheOptions)
{
    const QString error = "Ein Fehler ist aufgetreten!";
    const std::tuple<int, bool, int, QString, Outcome, QString> cases[] = {
        {0, false, 1, "sndburn.exe 1 soundlist.dat cvlist.dat", Outcome::Done, Done},
        {258, true, 2, "cvburn.exe 2 cvlist.dat", Outcome::Done, Done},
        {257, true, 4, "cvburn.exe 4 cvlist.dat", Outcome::Failed, error},
    };
    m_names.set(1, "pfiff.wav");
    for (const auto &[exitCode, selectrix, port, commandLine, outcome, status] : cases) {
        m_tools.script.exitCode = exitCode;
        EXPECT_EQ(runWith(selectrix, port), outcome) << exitCode;
        EXPECT_EQ(shown(), aRun(status));
        // Started by bare name in the program folder, beside the sound list it reads.
        EXPECT_EQ(m_tools.records.last()->commandLine, commandLine + ' ' + m_dir.path());
        EXPECT_TRUE(test::readFile(m_dir.filePath("soundlist.dat"))
                        .startsWith("**16MBit\r\n00: ---\r\n01: 1.wav\r\n"));
    }
}

TEST_F(ProgrammingRunTest, StartFailuresEndTheRunWithTheirStatus)
{
    using StartError = ToolProcess::StartError;
    const std::tuple<std::optional<StartError>, bool, Outcome, QString> cases[] = {
        {StartError::NotFound, false, Outcome::NotFound, "Programmiertool nicht gefunden!"},
        {StartError::NotStartable, false, Outcome::NotStartable, "Programmiertool startet nicht!"},
        {std::nullopt, true, Outcome::NotStartable, "Programmiertool startet nicht!"},
        {StartError::PortUnavailable, false, Outcome::PortUnavailable,
         "Schnittstelle nicht bereit!"},
    };
    m_tools.script.message = "Kein Adapter";
    for (const auto &[refuse, failLater, outcome, status] : cases) {
        m_tools.script.refuse = refuse;
        m_tools.script.failLaterToStart = failLater;
        EXPECT_EQ(runWith(), outcome);
        EXPECT_EQ(shown(), aRun(status));
        // Only an unreachable port has more to say than its status.
        EXPECT_EQ(m_run.message(), outcome == Outcome::PortUnavailable ? "Kein Adapter" : "");
    }
}

TEST_F(ProgrammingRunTest, CancelTerminatesTheRunningToolAndShowsItsText)
{
    m_tools.script.finishAfterMs.reset();
    // Cancelled from the event loop, once the tool runs.
    QObject::connect(
        &m_run, &ProgrammingRun::statusTextChanged, &m_run, [this] { m_run.cancel(); },
        Qt::ConnectionType(Qt::QueuedConnection | Qt::SingleShotConnection));
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_EQ(m_tools.records.first()->terminateCalls, 1);
    // The killed tool's late end changes nothing that the window shows.
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(shown(), aRun("Programmierung abgebrochen..."));

    // A click on "Abbrechen" waiting while the sound list is written: no tool starts.
    QMetaObject::invokeMethod(&m_run, &ProgrammingRun::cancel, Qt::QueuedConnection);
    EXPECT_EQ(runWith(), Outcome::Cancelled);
    EXPECT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(shown(), QStringList({"Programmierung abgebrochen..."}));
}

} // namespace
} // namespace klangor
