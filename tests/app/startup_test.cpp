#include "common/wavewriter.h"
#include "platform/programfiles.h"
#include "project/projecttesthelpers.h"
#include "support/sanitizer.h"
#include "support/wavwriter.h"

#include <cmath>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QTest>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace klangor {
namespace {

using namespace test;

// Runs the program (built beside the tests) as in a session without any display.
void runWithoutDisplay(QProcess &program, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(QString::fromLatin1(name));
    program.setProcessEnvironment(environment);
    program.start(QDir(QCoreApplication::applicationDirPath()).filePath("klangor"), arguments);
    ASSERT_TRUE(program.waitForFinished(60000));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
}

// Without a display the window says in one German line why it cannot start; Qt's own options
// (a session manager's -session) mean the window too. The command line needs no display,
// writes UTF-8 and takes options that are not Qt's as its own.
TEST(Startup, WithoutADisplayTheWindowSaysWhyAndTheCommandLineRuns)
{
    const QByteArray noDisplay =
        "Klangor braucht eine grafische Sitzung: es ist kein Bildschirm erreichbar.\n";
    const std::tuple<QStringList, int, QByteArray, QByteArray> cases[] = {
        {{}, 1, "", noDisplay},
        {{"-session", "s1"}, 1, "", noDisplay},
        {{"check", "/fehlt/ä.wav"}, 1, "/fehlt/\xC3\xA4.wav\tDie Datei existiert nicht.\n", ""},
        {{"-v"}, 2, "", "klangor: Unbekannte Option \xE2\x80\x9E-v\xE2\x80\x9C.\n"},
        {{"-o", "x"}, 2, "", "klangor: Unbekannte Option \xE2\x80\x9E-o\xE2\x80\x9C.\n"},
        // No message passes an escape sequence from a name to the terminal.
        {{"project", "show", "/fehlt/\x1b[2J.spj"},
         1,
         "",
         "klangor: Das Sound Projekt kann nicht ge\xC3\xB6"
         "ffnet werden. Die Datei "
         "\xE2\x80\x9E/fehlt/\\x1b[2J.spj\xE2\x80\x9C"},
    };
    for (const auto &[arguments, exitCode, out, err] : cases) {
        QProcess program;
        runWithoutDisplay(program, arguments);
        EXPECT_EQ(program.exitCode(), exitCode) << arguments.join(' ').toStdString();
        EXPECT_EQ(program.readAllStandardOutput(), out);
        EXPECT_TRUE(program.readAllStandardError().startsWith(err));
    }
}

// A project given on the command line, as a file manager passes it, opens in the window
// through the same open as "Öff&nen": its sounds and CV list land in the program folder.
TEST(Startup, OpensAProjectGivenOnTheCommandLine)
{
    QTemporaryDir program, projects; // the program copied into a folder of its own
    const QDir built(QCoreApplication::applicationDirPath());
    for (const QString &name : QStringList{"klangor"} + cvDefaultFileNames())
        ASSERT_TRUE(QFile::copy(built.filePath(name), program.filePath(name)))
            << name.toStdString();
    auto records =
        plainRecords(arrayFileBytes(StringArray::oneDimensional(0, 87)).value(), "1=3\r\n");
    records[5] = {"C:\\K\\5.wav", test::makeWav({})};
    ASSERT_TRUE(test::writeFile(projects.filePath("Lok 1.spj"), projectBytes(records)));

    QProcess window;
    window.setWorkingDirectory(projects.path()); // the name is relative to where it was started
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_QPA_PLATFORM", "offscreen");
    window.setProcessEnvironment(environment);
    window.start(program.filePath("klangor"), {"Lok 1.spj"});
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return test::readFile(program.filePath("cvlist.dat")) == "1=3\r\n" &&
                   test::readFile(program.filePath("5.wav")) == records[5].second;
        },
        30000));
    window.kill();
    window.waitForFinished();
}

// Runs the program with arguments, its output to /dev/null; its exit code and its peak
// resident memory in kB.
std::pair<int, long> runMeasured(const QStringList &arguments)
{
    std::vector<QByteArray> words{
        QFile::encodeName(QDir(QCoreApplication::applicationDirPath()).filePath("klangor"))};
    for (const QString &argument : arguments)
        words.push_back(QFile::encodeName(argument));
    std::vector<char *> argv;
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    if (spawned != 0 || ::wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status))
        return {-1, -1};
    return {WEXITSTATUS(status), usage.ru_maxrss};
}

// 20 minutes of 96 kHz 24-bit stereo (691 MB, mostly a hole in the file) cut to 5.9 s: only
// what is kept is read, and nothing is held whole.
TEST(Startup, ATwentyMinuteInputIsCutInLittleMemory)
{
    QTemporaryDir dir;
    const WaveFormat format{2, 96000, 24};
    const qint64 dataBytes = qint64(20) * 60 * 96000 * 6;
    std::vector<double> start(10 * 96000 * 2);
    for (std::size_t i = 0; i < start.size(); ++i)
        start[i] = 0.5 * std::sin(double(i / 2) * 0.05);
    QByteArray image = waveFileBytes(format, waveSampleBytes(format, start));
    qToLittleEndian<quint32>(quint32(36 + dataBytes), image.data() + 4);
    qToLittleEndian<quint32>(quint32(dataBytes), image.data() + 40);
    QFile input(dir.filePath("lang.wav"));
    ASSERT_TRUE(input.open(QIODevice::WriteOnly) && input.write(image) == image.size() &&
                input.resize(44 + dataBytes));
    input.close();

    const auto [exitCode, peakKb] =
        runMeasured({"convert", "--trim", input.fileName(), "-o", dir.path()});
    EXPECT_EQ(exitCode, 0);
    EXPECT_TRUE(!test::MeasuresMemory || peakKb < 64 * 1024) << peakKb;
    EXPECT_EQ(QFileInfo(dir.filePath("lang_decoder.wav")).size(), 44 + 2 * 65047);
}

} // namespace
} // namespace klangor
