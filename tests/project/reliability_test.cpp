// Real faults against saving and opening: a full disk, links out of the program folder,
// crafted project files, and kills in the middle of a save or an open.
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "programming/soundlist.h"
#include "project/arrayfile.h"
#include "projecttesthelpers.h"
#include "support/wavwriter.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace klangor {
namespace {

using namespace test;
using ::testing::AllOf;
using ::testing::HasSubstr;

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

bool leftovers(const QString &folder)
{
    return !QDir(folder)
                .entryList({SafeFilePrefix + QLatin1Char('*')}, QDir::AllEntries | QDir::Hidden)
                .isEmpty();
}

SlotFileNames namesUpTo(int count, const QString &prefix)
{
    SlotFileNames names;
    for (int i = 0; i < count; ++i)
        names.set(i, prefix + QString::number(i));
    return names;
}

class ReliabilityTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(m_program));
        ASSERT_TRUE(QDir().mkpath(m_outside));
    }
    void TearDown() override
    {
        if (m_mounted)
            ::umount2(native(m_disk).constData(), MNT_DETACH);
    }

    // A tmpfs of the given size at m_disk; the test is skipped where mounting is impossible.
    bool mountSmallDisk(qint64 bytes)
    {
        if (!QDir().mkpath(m_disk))
            return false;
        const QByteArray options = "size=" + QByteArray::number(bytes);
        m_mounted =
            ::mount("tmpfs", native(m_disk).constData(), "tmpfs", 0, options.constData()) == 0;
        return m_mounted;
    }

    // Fills the disk until at most `free` bytes are left.
    void fillDisk(qint64 free)
    {
        const int fd =
            ::open(native(m_disk + "/fill").constData(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
        ASSERT_GE(fd, 0);
        const QByteArray block(4096, 'f');
        while (::write(fd, block.constData(), block.size()) == block.size()) {
        }
        ::close(fd);
        ASSERT_TRUE(QFile(m_disk + "/fill").resize(QFileInfo(m_disk + "/fill").size() - free));
    }

    QString program(const QString &name) const { return QDir(m_program).filePath(name); }

    QTemporaryDir m_root;
    QString m_disk = m_root.filePath("disk");
    QString m_program = m_root.filePath("program");
    QString m_outside = m_root.filePath("outside");
    bool m_mounted = false;
};

TEST_F(ReliabilityTest, FullDiskKeepsTheOldProjectAndTheOldProgramFolder)
{
    if (!mountSmallDisk(1 << 20))
        GTEST_SKIP() << "no tmpfs can be mounted here (needs root)";
    m_program = m_disk + "/program";
    ASSERT_TRUE(QDir().mkpath(m_program));
    CommandsFixture window(m_program);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(writeFile(program(QStringLiteral("%1.wav").arg(i)), noise(20000, i)));
    window.host->names = namesUpTo(4, "alt");
    window.host->cv = "CV alt";
    const QString project = m_disk + "/lok.spj";
    window.saveAs(project);
    ASSERT_TRUE(window.host->messages.isEmpty());
    const QByteArray oldProject = readFile(project);
    window.host->path = project;

    // A project of larger sounds, kept where there is room.
    QTemporaryDir elsewhere;
    auto records = plainRecords(arrayFileBytes(StringArray::oneDimensional(0, 87)).value());
    for (int i = 0; i < 6; ++i)
        records[i] = {"C:\\K\\" + QByteArray::number(i) + ".wav", noise(60000, 10 + i)};
    ASSERT_TRUE(writeFile(elsewhere.filePath("gross.spj"), projectBytes(records)));

    fillDisk(64 * 1024);
    const auto shownBefore = window.host->state();

    // Saving again: the new file cannot be written beside the old one.
    window.commands.save();
    EXPECT_THAT(window.host->onlyMessage().toStdString(), HasSubstr("kein Platz mehr frei"));
    EXPECT_EQ(readFile(project), oldProject);
    EXPECT_FALSE(leftovers(m_disk));
    EXPECT_FALSE(leftovers(m_program));
    EXPECT_EQ(window.host->calls.constLast(), "pointer:idle");

    // Opening a project that does not fit changes nothing, on disk or in the window.
    const auto folderBefore = snapshot(m_program);
    window.open(elsewhere.filePath("gross.spj"));
    EXPECT_THAT(window.host->onlyMessage().toStdString(),
                AllOf(HasSubstr("kein Platz mehr frei"), HasSubstr("nichts geändert")));
    EXPECT_EQ(snapshot(m_program), folderBefore);
    EXPECT_EQ(window.host->state(), shownBefore);
}

TEST_F(ReliabilityTest, LinksAreReplacedAndTheirTargetsNeverTouched)
{
    const QStringList linked = {"5.wav", "cvlist.dat", "sound.arr", "soundlist.dat",
                                "placeholder.dat"};
    for (const QString &name : linked) {
        const QString target = QDir(m_outside).filePath(name + ".ziel");
        if (name != "sound.arr") { // that one dangles
            ASSERT_TRUE(writeFile(target, noise(100, 1)));
            ASSERT_EQ(::chmod(native(target).constData(), 0444), 0);
        }
        ASSERT_EQ(::symlink(native(target).constData(), native(program(name)).constData()), 0);
    }
    const auto outsideBefore = snapshot(m_outside);

    CommandsFixture window(m_program);
    window.host->names.set(5, "verlinkt.wav");
    window.saveAs(m_root.filePath("lok.spj"));
    ASSERT_TRUE(window.host->messages.isEmpty()) << window.host->messages[0].text.toStdString();
    WriteSoundList(m_program, window.host->names, 16);
    window.open(m_root.filePath("lok.spj"));
    ASSERT_TRUE(window.host->messages.isEmpty()) << window.host->messages[0].text.toStdString();

    EXPECT_EQ(snapshot(m_outside), outsideBefore);
    for (const QString &name : linked) {
        const QFileInfo info(program(name));
        EXPECT_TRUE(info.isFile() && !info.isSymLink()) << name.toStdString();
    }
    // The sound behind the link went into the project and came back as a file of its own.
    EXPECT_EQ(readFile(program("5.wav")), noise(100, 1));
}

TEST_F(ReliabilityTest, CraftedProjectsChangeNothingOutsideTheProgramsOwnFiles)
{
    for (const QString name : {"sndburn.exe", "cvdiesele.dat", "7.wav"})
        ASSERT_TRUE(writeFile(program(name), "eigen " + name.toLatin1()));
    ASSERT_EQ(::chmod(native(program("sndburn.exe")).constData(), 0755), 0);
    const QByteArray names = arrayFileBytes(StringArray::oneDimensional(0, 87)).value();

    auto tools = plainRecords(names);
    tools[1] = {"C:\\K\\sndburn.exe", "#!/bin/sh\nrm -rf ~\n"};
    tools[2] = {"C:\\K\\cvdiesele.dat", "falsch"};
    tools[3] = {"/usr/bin/klangor", "falsch"};
    tools[7] = {"C:\\K\\7.wav", "neu"};
    const QString toolsProject = m_root.filePath("werkzeug.spj");
    ASSERT_TRUE(writeFile(toolsProject, projectBytes(tools)));

    CommandsFixture window(m_program);
    window.host->cv = "vorher";
    window.open(toolsProject);
    EXPECT_EQ(window.host->onlyMessage(),
              QStringLiteral("Das Sound Projekt enthält Dateien, die nicht in den Programmordner "
                             "gehören. Sie wurden nicht übernommen:\nC:\\K\\sndburn.exe\n"
                             "C:\\K\\cvdiesele.dat\n/usr/bin/klangor"));
    for (const QString name : {"sndburn.exe", "cvdiesele.dat"})
        EXPECT_EQ(readFile(program(name)), "eigen " + name.toLatin1());
    EXPECT_EQ(readFile(program("7.wav")), QByteArray("neu"));
    for (const QFileInfo &file : QDir(m_program).entryInfoList(QDir::Files))
        EXPECT_EQ(file.isExecutable(), file.fileName() == "sndburn.exe");

    // Files that are no project are refused whole without touching anything; damaged bytes
    // are the reader's own test.
    QTemporaryDir bad;
    const QStringList paths = {bad.filePath("fifo"), bad.filePath("zero"), bad.filePath("folder"),
                               bad.filePath("huge")};
    ASSERT_EQ(::mkfifo(native(paths[0]).constData(), 0600), 0);
    ASSERT_EQ(::symlink("/dev/zero", native(paths[1]).constData()), 0);
    ASSERT_TRUE(QDir().mkdir(paths[2]));
    QFile huge(paths[3]);
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize(MaxProjectBytes + 1)); // sparse
    const auto before = snapshot(m_program);
    const auto shownBefore = window.host->state();
    for (const QString &path : paths) {
        SCOPED_TRACE(path.toStdString());
        window.open(path);
        EXPECT_THAT(window.host->onlyMessage().toStdString(), HasSubstr("nichts geändert"));
        EXPECT_EQ(snapshot(m_program), before);
        EXPECT_EQ(window.host->state(), shownBefore);
    }
}

TEST_F(ReliabilityTest, FailureWhileTheRestoredFilesAreCommittedLeavesEverythingAsItWas)
{
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(
            writeFile(program(QStringLiteral("%1.wav").arg(i)), "alt " + QByteArray::number(i)));
    // cvlist.dat comes last and cannot be replaced: a folder stands in its place.
    ASSERT_TRUE(QDir().mkpath(program("cvlist.dat/inhalt")));
    auto records = plainRecords(arrayFileBytes(StringArray::oneDimensional(0, 87)).value(), "neu");
    for (int i = 0; i < 10; ++i)
        records[i] = {"C:\\K\\" + QByteArray::number(i) + ".wav", "neu"};
    const QString project = m_root.filePath("lok.spj");
    ASSERT_TRUE(writeFile(project, projectBytes(records)));

    const Result<LoadedProject> loaded = parseProject(readFile(project), project);
    ASSERT_TRUE(loaded);
    const auto before = snapshot(m_program);
    const Status restored = SoundProjectFile(m_program).restoreProject(loaded.value(), m_program);
    ASSERT_FALSE(restored.ok());
    EXPECT_TRUE(restored.error().text.contains("cvlist.dat"));
    EXPECT_EQ(snapshot(m_program), before);
}

// Kills at exact steps: a child dies by SIGKILL right before its n-th rename, the moment at
// which each file of a save or an open changes from old to new.
std::atomic<int> g_renames{0};
std::atomic<int> g_killAtRename{-1};

} // namespace
} // namespace klangor

extern "C" int rename(const char *from, const char *to)
{
    if (klangor::g_renames++ == klangor::g_killAtRename)
        ::kill(::getpid(), SIGKILL);
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace klangor {
namespace {

struct Kill
{
    int atRename = -1;                 // or
    std::chrono::nanoseconds after{0}; // after this time, unless the work ended first
};

// Runs work in a child process and kills it as planned. Returns how many renames the child
// made, or -1 when the kill came first.
int runAndKill(const std::function<void()> &work, const Kill &kill)
{
    int done[2];
    if (::pipe2(done, O_CLOEXEC) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(done[0]);
        g_renames = 0;
        g_killAtRename = kill.atRename;
        work();
        const int renames = g_renames;
        [[maybe_unused]] const auto written = ::write(done[1], &renames, sizeof renames);
        ::_exit(0);
    }
    ::close(done[1]);
    pollfd end{done[0], POLLIN, 0};
    const auto after =
        kill.atRename >= 0 ? std::chrono::nanoseconds(std::chrono::seconds(60)) : kill.after;
    const timespec limit{static_cast<time_t>(after.count() / 1000000000),
                         static_cast<long>(after.count() % 1000000000)};
    int renames = -1;
    if (::ppoll(&end, 1, &limit, nullptr) <= 0 ||
        ::read(done[0], &renames, sizeof renames) != sizeof renames)
        renames = -1;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(done[0]);
    return renames;
}

// A kill before each rename of the work, and as many more at random times.
QList<Kill> killPlan(const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    const int renames = runAndKill(work, {-1, std::chrono::seconds(60)});
    const auto whole = std::chrono::steady_clock::now() - start;
    QList<Kill> plan;
    for (int i = 0; i < renames; ++i)
        plan.append(Kill{i, {}});
    while (plan.size() < 200 && plan.size() < 2 * std::max(renames, 50))
        plan.append(Kill{-1, std::chrono::nanoseconds(QRandomGenerator::global()->bounded(
                                 static_cast<qint64>(whole.count() * 12 / 10) + 1))});
    return plan;
}

void setFolder(const QString &folder, const QMap<QString, QByteArray> &files)
{
    QDir(folder).removeRecursively();
    QDir().mkpath(folder);
    for (auto it = files.begin(); it != files.end(); ++it)
        writeFile(QDir(folder).filePath(it.key()), it.value());
}

// Kills the work at every rename and at random moments. After the next start the folder
// holds its old state or its new one: no mix, no temporaries.
void expectOldOrNewAfterKills(const std::function<void()> &work, const QString &folder,
                              const QMap<QString, QByteArray> &old,
                              const std::function<QMap<QString, QByteArray>()> &state)
{
    setFolder(folder, old);
    const auto before = state();
    const QList<Kill> plan = killPlan(work);
    const auto after = state();
    ASSERT_NE(after, before);
    for (int kill = 0; kill < plan.size(); ++kill) {
        setFolder(folder, old);
        const bool interrupted = runAndKill(work, plan[kill]) < 0;
        ASSERT_TRUE(interrupted || plan[kill].atRename < 0) << "kill " << kill;
        recoverInterruptedWrites(folder); // the next start
        const auto now = state();
        ASSERT_TRUE(now == before || now == after) << "kill " << kill;
    }
}

QMap<QString, QByteArray> soundFiles(int count, const QByteArray &prefix)
{
    QMap<QString, QByteArray> files;
    for (int i = 0; i < count; ++i)
        files.insert(QStringLiteral("%1.wav").arg(i), prefix + noise(60000, i));
    return files;
}

TEST_F(ReliabilityTest, KillsDuringASaveLeaveTheOldProjectOrTheNewOne)
{
    QMap<QString, QByteArray> old = soundFiles(40, "alt");
    setFolder(m_program, old);
    CommandsFixture window(m_program);
    window.host->names = namesUpTo(10, "alt");
    window.saveAs(program("lok.spj"));
    old.insert("lok.spj", readFile(program("lok.spj")));
    window.host->names = namesUpTo(40, "neu");
    window.host->path = program("lok.spj");
    // Each file of a save is replaced on its own; the project is what must never mix.
    const auto projectAndTemporaries = [&] {
        QMap<QString, QByteArray> files = snapshot(m_program);
        files.removeIf([](const auto &file) {
            return file.key() != "lok.spj" && !file.key().startsWith(SafeFilePrefix);
        });
        return files;
    };
    expectOldOrNewAfterKills([&] { window.commands.save(); }, m_program, old,
                             projectAndTemporaries);
    EXPECT_TRUE(window.host->messages.isEmpty());
}

TEST_F(ReliabilityTest, KillsDuringAnOpenLeaveTheOldFilesOrTheNewOnes)
{
    QTemporaryDir source;
    setFolder(source.path(), soundFiles(40, "neu"));
    CommandsFixture saver(source.path());
    saver.host->names = namesUpTo(40, "neu");
    saver.host->cv = "CV neu";
    const QString project = source.filePath("lok.spj");
    saver.saveAs(project);
    ASSERT_TRUE(saver.host->messages.isEmpty());

    QMap<QString, QByteArray> old;
    for (int i = 0; i < 30; ++i)
        old.insert(QStringLiteral("%1.wav").arg(i), "alt " + QByteArray::number(i));
    old.insert("cvlist.dat", "CV alt");
    CommandsFixture window(m_program);
    expectOldOrNewAfterKills([&] { window.open(project); }, m_program, old,
                             [&] { return snapshot(m_program); });
}

} // namespace
} // namespace klangor
