#include "platform/toolprocess.h"
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "support/standinfolder.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QSignalSpy>
#include <QStandardPaths>
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
        auto tool = createSystemToolProcess();
        EXPECT_TRUE(tool->start(command.program, command.arguments, m_folder.folder()));
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

// Terminating kills the tool; destroying the object lets a working tool finish its job.
TEST_F(ToolProcessTest, RunsInTheFolderUntilTerminatedOrLetGo)
{
    const auto killed = start(3);
    ASSERT_TRUE(logged("argv=cvburn.exe 3 cvlist.dat"));
    EXPECT_TRUE(logged("cwd=" + QFileInfo(m_folder.folder()).canonicalFilePath().toUtf8()));
    killed->terminate();
    EXPECT_EQ(exitCode(*killed), ToolProcess::TerminatedExitCode);
    start(4).reset();
    ASSERT_TRUE(logged("port=COM4"));
    ASSERT_TRUE(test::writeFile(release(), ""));
    EXPECT_TRUE(logged("exit=0"));
}

// wine hands on only the low byte of a Windows exit code. The first start in a new wine prefix
// sets the prefix up first, hence the long failsafe.
TEST_F(ToolProcessTest, ReportsTheWindowsExitCodeOfAToolRunThroughWine)
{
    if (QStandardPaths::findExecutable("wine").isEmpty() ||
        !QFile::exists(test::StandInFolder::binPath("windows/sndburn.exe")))
        GTEST_SKIP() << "needs wine and the Windows stand-in (x86_64-w64-mingw32-g++)";
    // A prefix of the build's own, without debug output and without offers to install Mono and
    // Gecko.
    const test::ScopedEnv prefix("WINEPREFIX",
                                 test::StandInFolder::binPath("../wineprefix").toUtf8());
    const test::ScopedEnv quiet("WINEDEBUG", "-all");
    const test::ScopedEnv noOffers("WINEDLLOVERRIDES", "mscoree,mshtml=");
    m_folder.copyFromBin("windows/sndburn.exe", "sndburn.exe");
    WriteSoundList(m_folder.folder(), SlotFileNames(), 2);
    ASSERT_TRUE(test::writeFile(release(), ""));
    const std::pair<const char *, int> cases[] = {{"0", 0}, {"258", 258}, {"7", 7}};
    for (const auto &[code, expected] : cases) {
        test::ScopedEnv exit("KLANGOR_STANDIN_EXIT", code);
        EXPECT_EQ(exitCode(*start(3, false), 600000), expected);
        EXPECT_TRUE(logged("argv=sndburn.exe 3 soundlist.dat cvlist.dat"));
    }
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
        const auto tool = createSystemToolProcess();
        QSignalSpy failedLater(tool.get(), &ToolProcess::startFailed);
        // Refused at once, or only from the event loop.
        EXPECT_TRUE(!tool->start(program, {}, m_folder.folder()) || failedLater.wait(60000));
        EXPECT_EQ(tool->startError(), error) << program.toStdString();
    }
}

} // namespace
} // namespace klangor
