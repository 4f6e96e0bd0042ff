#include "platform/toolprocess.h"
#include "support/standinfolder.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

namespace klangor {
namespace {

using test::ScopedEnv;

int exitCode(ToolProcess &tool)
{
    QSignalSpy finished(&tool, &ToolProcess::finished);
    return finished.wait(60000) ? finished.first().first().toInt() : -1;
}

// The system's tool process running the stand-in tool, which "programs" until the file
// "release" appears in its folder.
class ToolProcessTest : public ::testing::Test
{
protected:
    std::unique_ptr<ToolProcess> startWorkingTool()
    {
        auto tool = createSystemToolProcess();
        EXPECT_TRUE(tool->start(QStringLiteral("cvburn.exe"), {"3", "cvlist.dat"}, folder()));
        EXPECT_TRUE(
            QTest::qWaitFor([this] { return m_folder.log().contains("port=COM3"); }, 60000));
        return tool;
    }
    QString folder() const { return m_folder.folder(); }
    QString release() const { return m_folder.path(QStringLiteral("release")); }

    test::StandInFolder m_folder;
    ScopedEnv m_hold{"KLANGOR_STANDIN_UNTIL", release().toUtf8()};
};

TEST_F(ToolProcessTest, RunsInTheFolderWithItsArgumentsAndReportsTheExitCode)
{
    ASSERT_TRUE(test::writeFile(release(), ""));
    // A crash is never reported as success: 128 + SIGABRT.
    const std::tuple<const char *, const char *, int> cases[] = {
        {"KLANGOR_STANDIN_EXIT", "7", 7}, {"KLANGOR_STANDIN_CRASH", "1", 134}};
    for (const auto &[variable, value, expected] : cases) {
        ScopedEnv control(variable, value);
        const auto tool = createSystemToolProcess();
        ASSERT_TRUE(tool->start(QStringLiteral("cvburn.exe"), {"2", "cvlist.dat"}, folder()));
        EXPECT_EQ(exitCode(*tool), expected);
    }
    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("argv=cvburn.exe 2 cvlist.dat"));
    EXPECT_TRUE(log.contains("cwd=" + QFileInfo(folder()).canonicalFilePath().toUtf8()));
}

TEST_F(ToolProcessTest, TerminateKillsAWorkingToolWithExitCodeOne)
{
    const auto tool = startWorkingTool();
    tool->terminate();
    EXPECT_EQ(exitCode(*tool), ToolProcess::TerminatedExitCode);
    EXPECT_FALSE(m_folder.log().contains("exit="));
}

TEST_F(ToolProcessTest, DestroyedWhileRunningLeavesTheToolRunning)
{
    startWorkingTool().reset();
    ASSERT_TRUE(test::writeFile(release(), ""));
    EXPECT_TRUE(QTest::qWaitFor([this] { return m_folder.log().contains("exit=0"); }, 60000));
}

TEST_F(ToolProcessTest, StartFailuresTellMissingFromNotStartable)
{
    ASSERT_TRUE(test::writeFile(m_folder.path(QStringLiteral("text.exe")), "kein Programm"));
    ASSERT_TRUE(QFile::copy(m_folder.path(QStringLiteral("text.exe")),
                            m_folder.path(QStringLiteral("skript.exe"))));
    QFile::setPermissions(m_folder.path(QStringLiteral("skript.exe")), QFile::ExeOwner);
    using Error = ToolProcess::StartError;
    const std::pair<QString, Error> cases[] = {{"fehlt.exe", Error::NotFound},
                                               {"text.exe", Error::NotStartable},
                                               {"skript.exe", Error::NotStartable}};
    for (const auto &[program, error] : cases) {
        const auto tool = createSystemToolProcess();
        QSignalSpy failedLater(tool.get(), &ToolProcess::startFailed);
        // The system may refuse an executable file only from the event loop.
        if (tool->start(program, {}, folder())) {
            EXPECT_TRUE(failedLater.wait(60000));
        }
        EXPECT_EQ(tool->startError(), error) << program.toStdString();
    }
}

} // namespace
} // namespace klangor
