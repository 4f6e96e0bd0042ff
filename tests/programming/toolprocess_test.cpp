#include "platform/toolprocess.h"
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "support/standinfolder.h"
#include "support/toolruns.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

namespace klangor {
namespace {

int exitCode(ToolProcess &tool, int failsafeMs = 60000)
{
    QSignalSpy finished(&tool, &ToolProcess::finished);
    return finished.wait(failsafeMs) ? finished.first().first().toInt() : -1;
}

// The system's tool process running the stand-in tool, which "programs" until the file
// "release" appears in its folder.
class ToolProcessTest : public ::testing::Test
{
protected:
    std::unique_ptr<ToolProcess> start(int port, bool selectrix = true)
    {
        const ToolCommand command = toolCommand(selectrix, port);
        auto tool = createSystemToolProcess({});
        EXPECT_TRUE(tool->start(command.program, command.arguments, m_folder.folder(), {}));
        return tool;
    }
    bool logged(const QByteArray &line) const
    {
        return QTest::qWaitFor([&] { return m_folder.log().split('\n').contains(line); }, 60000);
    }
    QString release() const { return m_folder.path("release"); }

    test::StandInFolder m_folder;
    test::ScopedEnv m_hold{"KLANGOR_STANDIN_UNTIL", release().toUtf8()};
};

TEST_F(ToolProcessTest, ReportsTheExitCode)
{
    ASSERT_TRUE(test::writeFile(release(), ""));
    // A crash is never reported as success: 128 + SIGABRT.
    const std::tuple<const char *, const char *, int> cases[] = {
        {"KLANGOR_STANDIN_EXIT", "7", 7}, {"KLANGOR_STANDIN_CRASH", "1", 134}};
    for (const auto &[variable, value, expected] : cases) {
        test::ScopedEnv control(variable, value);
        EXPECT_EQ(exitCode(*start(2)), expected);
    }
}

// Destroying the object lets a working tool finish its job; terminating is the cancel's test.
TEST_F(ToolProcessTest, RunsInTheFolderAndALetGoToolFinishesItsJob)
{
    start(3).reset();
    ASSERT_TRUE(logged("argv=cvburn.exe 3 cvlist.dat"));
    EXPECT_TRUE(logged("cwd=" + QFileInfo(m_folder.folder()).canonicalFilePath().toUtf8()));
    EXPECT_TRUE(logged("port=COM3"));
    ASSERT_TRUE(test::writeFile(release(), ""));
    EXPECT_TRUE(logged("exit=0"));
}

TEST_F(ToolProcessTest, StartFailuresTellMissingFromNotStartable)
{
    // An executable file that the system cannot run.
    const QString script = m_folder.path("skript.exe");
    ASSERT_TRUE(test::writeFile(script, "kein Programm"));
    ASSERT_TRUE(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
    using Error = ToolProcess::StartError;
    const std::pair<QString, Error> cases[] = {{"fehlt.exe", Error::NotFound},
                                               {"skript.exe", Error::NotStartable}};
    for (const auto &[program, error] : cases) {
        const auto tool = createSystemToolProcess({});
        QSignalSpy failedLater(tool.get(), &ToolProcess::startFailed);
        // Refused at once, or only from the event loop.
        EXPECT_TRUE(!tool->start(program, {}, m_folder.folder(), {}) || failedLater.wait(60000));
        EXPECT_EQ(tool->startError(), error) << program.toStdString();
    }
}

// A cancel ends the tool with every process it started: children in its group, a flood of
// output, a daemon in a session of its own.
TEST_F(ToolProcessTest, TerminateLeavesNoProcessOfTheRunBehind)
{
    const char *tools[] = {
        "sleep 600 & sleep 600 &",
        "yes & yes &",
        "setsid sh -c 'sleep 600 & exec sleep 600' &",
    };
    for (const char *children : tools) {
        SCOPED_TRACE(children);
        const test::RunMark mark;
        const QString script = m_folder.path("cvburn.exe");
        ASSERT_TRUE(test::writeFile(script, QByteArray("#!/bin/sh\n") + children +
                                                "\ntouch started\nwait\n"));
        ASSERT_TRUE(QFile::setPermissions(script, QFile::ReadOwner | QFile::ExeOwner));
        const auto tool = start(1);
        ASSERT_TRUE(
            QTest::qWaitFor([&] { return QFile::exists(m_folder.path("started")); }, 60000));
        QFile::remove(m_folder.path("started"));
        // The daemon forks its own children after "started" is there.
        EXPECT_TRUE(QTest::qWaitFor([&] { return mark.liveProcesses() >= 3; }, 10000));
        tool->terminate();
        EXPECT_TRUE(QTest::qWaitFor([&] { return mark.liveProcesses() == 0; }, 1000));
        EXPECT_EQ(exitCode(*tool), ToolProcess::TerminatedExitCode);
    }
}

} // namespace
} // namespace klangor
