#include "platform/toolprocess_linux.h"
#include "programming/soundlist.h"
#include "support/standinfolder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

namespace klangor {
namespace {

using test::ScopedEnv;
using test::StandInFolder;

QList<QByteArray> logLines(const StandInFolder &folder)
{
    return folder.log().split('\n');
}

// Waits for the tool's end; -1 when it did not end in time.
int waitForExit(ToolProcess &tool, int ms = 10000)
{
    QSignalSpy finished(&tool, &ToolProcess::finished);
    if (!finished.wait(ms))
        return -1;
    return finished.first().first().toInt();
}

class LinuxToolProcessTest : public ::testing::Test
{
protected:
    StandInFolder m_folder;
    LinuxToolProcess m_tool;
    ScopedEnv m_quick{"KLANGOR_STANDIN_SECONDS", "0.05"};
};

TEST_F(LinuxToolProcessTest, RunsTheToolInTheFolderAndReportsItsExitCode)
{
    for (const int code : {0, 7, 255}) {
        ScopedEnv exit("KLANGOR_STANDIN_EXIT", QByteArray::number(code));
        LinuxToolProcess tool;
        ASSERT_TRUE(
            tool.start(QStringLiteral("cvburn.exe"), {"2", "cvlist.dat"}, m_folder.folder()));
        EXPECT_TRUE(tool.isRunning());
        EXPECT_EQ(waitForExit(tool), code);
        EXPECT_FALSE(tool.isRunning());

        const QList<QByteArray> lines = logLines(m_folder);
        EXPECT_TRUE(lines.contains("argv=cvburn.exe 2 cvlist.dat")) << m_folder.log().constData();
        EXPECT_TRUE(
            lines.contains("cwd=" + QFileInfo(m_folder.folder()).canonicalFilePath().toUtf8()));
        EXPECT_TRUE(lines.contains("cvlist=ok entries=2"));
        EXPECT_TRUE(lines.contains("exit=" + QByteArray::number(code)));
    }
}

TEST_F(LinuxToolProcessTest, TerminateEndsTheToolAtOnceWithExitCodeOne)
{
    ScopedEnv slow("KLANGOR_STANDIN_SECONDS", "30");
    ASSERT_TRUE(m_tool.start(QStringLiteral("cvburn.exe"), {"1", "cvlist.dat"}, m_folder.folder()));
    QElapsedTimer clock;
    clock.start();
    // Let it reach its wait, so the kill hits a working tool.
    while (!m_folder.log().contains("port=COM1") && clock.elapsed() < 5000)
        QTest::qWait(20);
    ASSERT_TRUE(m_folder.log().contains("port=COM1"));

    QSignalSpy finished(&m_tool, &ToolProcess::finished);
    m_tool.terminate();
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(finished.first().first().toInt(), ToolProcess::TerminatedExitCode);
    EXPECT_LT(clock.elapsed(), 10000);
    EXPECT_FALSE(m_folder.log().contains("exit="));
    m_tool.terminate(); // nothing left to terminate
    EXPECT_EQ(finished.count(), 1);
}

TEST_F(LinuxToolProcessTest, CrashIsReportedAsAFailureCode)
{
    ScopedEnv crash("KLANGOR_STANDIN_CRASH", "1");
    ASSERT_TRUE(m_tool.start(QStringLiteral("cvburn.exe"), {"1", "cvlist.dat"}, m_folder.folder()));
    const int code = waitForExit(m_tool);
    EXPECT_EQ(code, LinuxToolProcess::crashExitCode(SIGABRT));
    EXPECT_NE(code, 0);
    EXPECT_NE(code, 258);
}

TEST_F(LinuxToolProcessTest, MissingToolIsNotFound)
{
    EXPECT_FALSE(m_tool.start(QStringLiteral("gibtsnicht.exe"), {"1"}, m_folder.folder()));
    EXPECT_EQ(m_tool.startError(), ToolProcess::StartError::NotFound);
    EXPECT_FALSE(m_tool.isRunning());
    // A folder of that name is no tool either.
    ASSERT_TRUE(QDir(m_folder.folder()).mkdir(QStringLiteral("ordner.exe")));
    EXPECT_FALSE(m_tool.start(QStringLiteral("ordner.exe"), {}, m_folder.folder()));
    EXPECT_EQ(m_tool.startError(), ToolProcess::StartError::NotFound);
}

TEST_F(LinuxToolProcessTest, FileWithoutExecutePermissionIsNotStartable)
{
    ASSERT_TRUE(test::writeFile(m_folder.path(QStringLiteral("text.exe")), "kein Programm"));
    EXPECT_FALSE(m_tool.start(QStringLiteral("text.exe"), {}, m_folder.folder()));
    EXPECT_EQ(m_tool.startError(), ToolProcess::StartError::NotStartable);
}

TEST_F(LinuxToolProcessTest, WindowsExecutableWithoutWineFailsToStart)
{
    if (!QStandardPaths::findExecutable(QStringLiteral("wine")).isEmpty()) {
        GTEST_SKIP() << "wine is installed; it would run the file";
    }
    const QString path = m_folder.path(QStringLiteral("win.exe"));
    ASSERT_TRUE(test::writeFile(path, QByteArray("MZ") + QByteArray(200, '\0')));
    ASSERT_TRUE(QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));

    QSignalSpy failed(&m_tool, &ToolProcess::startFailed);
    const bool started = m_tool.start(QStringLiteral("win.exe"), {}, m_folder.folder());
    // The system may refuse at once or only from the event loop; either way it is reported.
    if (started) {
        EXPECT_TRUE(failed.wait(5000));
    }
    EXPECT_EQ(m_tool.startError(), ToolProcess::StartError::NotStartable);
    EXPECT_FALSE(m_tool.isRunning());
}

TEST_F(LinuxToolProcessTest, DestroyedWhileRunningLeavesTheToolRunning)
{
    ScopedEnv slower("KLANGOR_STANDIN_SECONDS", "0.8");
    {
        LinuxToolProcess tool;
        ASSERT_TRUE(
            tool.start(QStringLiteral("cvburn.exe"), {"4", "cvlist.dat"}, m_folder.folder()));
        QElapsedTimer clock;
        clock.start();
        while (!m_folder.log().contains("port=COM4") && clock.elapsed() < 5000)
            QTest::qWait(20);
    }
    QElapsedTimer clock;
    clock.start();
    while (!m_folder.log().contains("exit=0") && clock.elapsed() < 10000)
        QTest::qWait(50);
    EXPECT_TRUE(logLines(m_folder).contains("exit=0")) << m_folder.log().constData();
}

// The stand-in judges its input as the real tool would: bad input gives a nonzero code.
struct StandInCase
{
    const char *label;
    const char *program;
    QStringList arguments;
    int exitCode;
};

void PrintTo(const StandInCase &c, std::ostream *os)
{
    *os << c.label;
}

class StandInBase : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(test::writeFile(m_folder.path(QStringLiteral("0.wav")), test::makeWav({})));
        ASSERT_TRUE(test::writeFile(m_folder.path(QStringLiteral("12.wav")), test::makeWav({})));
        ASSERT_TRUE(test::writeFile(m_folder.path(QStringLiteral("5.wav")), "RIFF....AVI LIST"));
        m_names.set(0, QStringLiteral("a.wav"));
        m_names.set(12, QStringLiteral("b.wav"));
        ASSERT_TRUE(WriteSoundList(m_folder.folder(), m_names, 16));
    }
    int run(const StandInCase &c)
    {
        LinuxToolProcess tool;
        if (!tool.start(QString::fromLatin1(c.program), c.arguments, m_folder.folder()))
            return -2;
        return waitForExit(tool);
    }

    StandInFolder m_folder;
    SlotFileNames m_names;
    ScopedEnv m_quick{"KLANGOR_STANDIN_SECONDS", "0"};
};

class StandInChecks : public StandInBase, public ::testing::WithParamInterface<StandInCase>
{};

TEST_P(StandInChecks, ArgumentsAndFiles)
{
    EXPECT_EQ(run(GetParam()), GetParam().exitCode) << m_folder.log().constData();
}

const QStringList soundArgs = {"1", "soundlist.dat", "cvlist.dat"};

INSTANTIATE_TEST_SUITE_P(
    CommandLine, StandInChecks,
    ::testing::Values(StandInCase{"sound_ok", "sndburn.exe", soundArgs, 0},
                      StandInCase{"cv_ok", "cvburn.exe", {"4", "cvlist.dat"}, 0},
                      StandInCase{"port_0", "sndburn.exe", {"0", "soundlist.dat", "cvlist.dat"}, 2},
                      StandInCase{"port_5", "cvburn.exe", {"5", "cvlist.dat"}, 2},
                      StandInCase{"port_text", "cvburn.exe", {"COM1", "cvlist.dat"}, 2},
                      StandInCase{
                          "files_swapped", "sndburn.exe", {"1", "cvlist.dat", "soundlist.dat"}, 2},
                      StandInCase{"cv_tool_given_sounds", "cvburn.exe", soundArgs, 2},
                      StandInCase{"no_arguments", "sndburn.exe", {}, 2}),
    [](const auto &param) { return std::string(param.param.label); });

struct FileCase
{
    const char *label;
    const char *file;
    QByteArray content;
    int exitCode;
};

void PrintTo(const FileCase &c, std::ostream *os)
{
    *os << c.label;
}

class StandInFiles : public StandInBase, public ::testing::WithParamInterface<FileCase>
{};

TEST_P(StandInFiles, AreCheckedBeforeProgramming)
{
    const FileCase &c = GetParam();
    ASSERT_TRUE(test::writeFile(m_folder.path(QString::fromLatin1(c.file)), c.content));
    EXPECT_EQ(run({"", "sndburn.exe", soundArgs, 0}), c.exitCode) << m_folder.log().constData();
}

QByteArray lfOnly(QByteArray bytes)
{
    return bytes.replace("\r\n", "\n");
}

SlotFileNames assigned(std::initializer_list<int> numbers)
{
    SlotFileNames names;
    for (int n : numbers)
        names.set(n, QStringLiteral("x"));
    return names;
}

INSTANTIATE_TEST_SUITE_P(
    Table, StandInFiles,
    ::testing::Values(
        FileCase{"two_mbit_ok", "soundlist.dat", soundListBytes(assigned({0, 12}), 2), 0},
        FileCase{"lf_line_ends", "soundlist.dat", lfOnly(soundListBytes(assigned({0}), 16)), 3},
        FileCase{"missing_line", "soundlist.dat", soundListBytes(assigned({}), 2).left(783), 3},
        FileCase{"missing_wave", "soundlist.dat", soundListBytes(assigned({0, 7}), 16), 4},
        FileCase{"not_a_wave", "soundlist.dat", soundListBytes(assigned({5}), 16), 4},
        FileCase{"cv_value_256", "cvlist.dat", "1=3\r\n2=256\r\n", 5},
        FileCase{"cv_number_0", "cvlist.dat", "0=3\r\n", 5},
        FileCase{"cv_garbage", "cvlist.dat", "; ok\r\nCV1=3\r\n", 5},
        FileCase{"cv_only_comments", "cvlist.dat", "; nichts\r\n", 5},
        FileCase{"cv_lf_ok", "cvlist.dat", "; Kommentar\n\n1=3\n255=255\n", 0}),
    [](const auto &param) { return std::string(param.param.label); });

TEST(StandInDefaults, AcceptTheDeliveredCvFiles)
{
    StandInFolder folder;
    ScopedEnv quick("KLANGOR_STANDIN_SECONDS", "0");
    for (const char *name : {"cvdiesele.dat", "cvdampf.dat", "cvselectrix.dat"}) {
        const QByteArray data =
            test::readFile(QDir(StandInFolder::binDir()).filePath(QString::fromLatin1(name)));
        ASSERT_FALSE(data.isEmpty()) << name;
        ASSERT_TRUE(test::writeFile(folder.path(QStringLiteral("cvlist.dat")), data));
        LinuxToolProcess tool;
        ASSERT_TRUE(tool.start(QStringLiteral("cvburn.exe"), {"1", "cvlist.dat"}, folder.folder()));
        EXPECT_EQ(waitForExit(tool), 0) << name << folder.log().constData();
    }
}

} // namespace
} // namespace klangor
