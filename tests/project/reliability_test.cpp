// Real faults against saving and opening: a full disk, links out of the program folder,
// crafted project files, and kills in the middle of a save or an open on a stick.
#include "platform/filebatch.h"
#include "platform/programfiles.h"
#include "platform/safefile.h"
#include "programming/soundlist.h"
#include "project/arrayfile.h"
#include "projecttesthelpers.h"
#include "support/killedwork.h"
#include "support/wavwriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QProcess>
#include <QTemporaryDir>
#include <sys/stat.h>
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
    QString program(const QString &name) const { return QDir(m_program).filePath(name); }

    QTemporaryDir m_root;
    QString m_program = m_root.filePath("program");
    QString m_outside = m_root.filePath("outside");
};

// A program folder on a stick: no links, no anonymous temporaries.
class StickTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (m_disk.path.isEmpty())
            GTEST_SKIP() << "no exFAT file system: " << m_disk.why.toStdString();
    }
    QString program(const QString &name) const { return QDir(m_program).filePath(name); }

    test::ExfatDisk m_disk;
    QString m_program = m_disk.path + "/programm";
};

TEST_F(StickTest, AFullStickKeepsTheOldProjectAndTheOldProgramFolder)
{
    ASSERT_TRUE(QDir().mkpath(m_program));
    CommandsFixture window(m_program);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(writeFile(program(QStringLiteral("%1.wav").arg(i)), noise(20000, i)));
    window.host->names = namesUpTo(4, "alt");
    window.host->cv = "CV alt";
    const QString project = m_disk.path + "/lok.spj";
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

    // The stick is filled until 64 KiB are left.
    QProcess::execute("sh",
                      {"-c", "dd bs=4k if=/dev/zero of=" + m_disk.path +
                                 "/fill 2>/dev/null; truncate -s -64K " + m_disk.path + "/fill"});
    const auto shownBefore = window.host->state();

    // Saving again: the new file cannot be written beside the old one.
    window.commands.save();
    EXPECT_THAT(window.host->onlyMessage().toStdString(), HasSubstr("kein Platz mehr frei"));
    EXPECT_EQ(readFile(project), oldProject);
    EXPECT_FALSE(leftovers(m_disk.path));
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

TEST_F(ReliabilityTest, ASaveReadsNoLinkOutOfTheFolderAndReplacesTheLinksItWrites)
{
    const QStringList linked = {"5.wav", "cvlist.dat", "sound.arr", "soundlist.dat",
                                "placeholder.dat"};
    for (const QString &name : linked) {
        const QString target = QDir(m_outside).filePath(name + ".ziel");
        if (name != "sound.arr" && name != "placeholder.dat") { // those dangle
            ASSERT_TRUE(writeFile(target, noise(100, 1)));
            ASSERT_EQ(::chmod(native(target).constData(), 0444), 0);
        }
        ASSERT_EQ(::symlink(native(target).constData(), native(program(name)).constData()), 0);
    }
    const auto outsideBefore = snapshot(m_outside);
    const auto programBefore = snapshot(m_program);

    CommandsFixture window(m_program);
    window.host->names.set(5, "verlinkt.wav");
    window.saveAs(m_root.filePath("lok.spj"));
    EXPECT_EQ(window.host->onlyMessage(),
              "„" + program("5.wav") +
                  "“ ist eine Verknüpfung nach außerhalb des Ordners und wird nicht eingepackt. "
                  "Das Sound Projekt wurde nicht gespeichert.");
    EXPECT_EQ(snapshot(m_program), programBefore);
    EXPECT_FALSE(QFileInfo::exists(m_root.filePath("lok.spj")));

    // A link within the folder is read; the links the save and the open write are replaced.
    ASSERT_TRUE(QFile::remove(program("5.wav")) && QFile::link("eigen", program("5.wav")));
    ASSERT_TRUE(writeFile(program("eigen"), noise(100, 2)));
    window.saveAs(m_root.filePath("lok.spj"));
    ASSERT_TRUE(window.host->messages.isEmpty()) << window.host->messages[0].text.toStdString();
    WriteSoundList(m_program, window.host->names, 16);
    window.open(m_root.filePath("lok.spj"));
    ASSERT_TRUE(window.host->messages.isEmpty()) << window.host->messages[0].text.toStdString();

    EXPECT_EQ(snapshot(m_outside), outsideBefore);
    for (const QString &name : linked)
        EXPECT_TRUE(QFileInfo(program(name)).isFile() && !QFileInfo(program(name)).isSymLink());
    EXPECT_EQ(readFile(program("5.wav")), noise(100, 2));
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

// A commit that fails half-way puts back every file it had moved.
TEST_F(ReliabilityTest, ACommitThatFailsHalfWayLeavesEverythingAsItWas)
{
    QList<std::pair<QString, QByteArray>> files;
    for (int i = 0; i < 10; ++i) {
        files.append({QStringLiteral("%1.wav").arg(i), QByteArray("neu")});
        ASSERT_TRUE(i < 5 || writeFile(program(files[i].first), "alt"));
    }
    // The last file cannot replace the folder that stands in its place.
    files.append({QStringLiteral("cvlist.dat"), QByteArray("neu")});
    ASSERT_TRUE(QDir().mkpath(program("cvlist.dat/inhalt")));
    const auto before = snapshot(m_program);
    FileBatch replacing(m_program);
    ASSERT_TRUE(replacing.stage(files));
    recoverInterruptedWrites(m_program); // another writer starts meanwhile: the batch is not its
    EXPECT_THAT(replacing.commit().error().text.toStdString(), HasSubstr("cvlist.dat"));
    EXPECT_EQ(snapshot(m_program), before);
    // A batch that keeps existing files stops at the first one.
    FileBatch keeping(m_program, true);
    ASSERT_TRUE(keeping.stage(files.mid(0, 10)));
    EXPECT_EQ(keeping.commit().error().text,
              "Die Datei „" + program("5.wav") +
                  "“ kann nicht geschrieben werden: Unter diesem Namen gibt es schon eine Datei.");
    EXPECT_EQ(snapshot(m_program), before);
    // Killed meanwhile, it is completed without replacing a file that appeared.
    ASSERT_TRUE(QDir().mkpath(program(SafeFilePrefix + "keep-0/new")));
    ASSERT_TRUE(writeFile(program(SafeFilePrefix + "keep-0/new/5.wav"), "neu") &&
                writeFile(program(SafeFilePrefix + "keep-0/new/20.wav"), "neu"));
    recoverInterruptedWrites(m_program);
    EXPECT_EQ(readFile(program("5.wav")), "alt");
    EXPECT_EQ(readFile(program("20.wav")), "neu");
    EXPECT_FALSE(leftovers(m_program));
    // One whose new file cannot be moved in keeps the old file it had moved aside.
    const QString stuck = program(SafeFilePrefix + "commit-1");
    ASSERT_TRUE(QDir().mkpath(stuck + "/new") && QDir().mkpath(stuck + "/old"));
    ASSERT_TRUE(writeFile(stuck + "/new/cvlist.dat", "neu") &&
                writeFile(stuck + "/old/cvlist.dat", "alt"));
    // One that failed and could not put an old file back gets it back, over nothing newer.
    const QString undo = program(SafeFilePrefix + "undo-1");
    ASSERT_TRUE(QDir().mkpath(undo + "/new") && QDir().mkpath(undo + "/old"));
    ASSERT_TRUE(writeFile(undo + "/new/30.wav", "neu") && writeFile(undo + "/old/30.wav", "alt") &&
                writeFile(undo + "/new/20.wav", "neuer") &&
                writeFile(undo + "/old/20.wav", "alt") && writeFile(undo + "/old/40.wav", "alt") &&
                writeFile(program("40.wav"), "neu"));
    recoverInterruptedWrites(m_program);
    EXPECT_EQ(readFile(stuck + "/old/cvlist.dat"), "alt");
    EXPECT_EQ(readFile(program("30.wav")), "alt");
    EXPECT_EQ(readFile(program("20.wav")), "neu");
    EXPECT_EQ(readFile(program("40.wav")), "alt"); // its new one was never taken back
    EXPECT_FALSE(QFileInfo::exists(undo));
}

// A writer holds its folder from making its temporary until it has locked it.
TEST_F(ReliabilityTest, RecoveryLeavesATemporaryBeingMadeAlone)
{
    ASSERT_TRUE(writeFile(program(SafeFilePrefix + "tmp-0"), ""));
    {
        const MakingTemporary making(m_program);
        recoverInterruptedWrites(m_program);
        EXPECT_TRUE(leftovers(m_program));
    }
    recoverInterruptedWrites(m_program);
    EXPECT_FALSE(leftovers(m_program));
}

QMap<QString, QByteArray> soundFiles(int count, const QByteArray &prefix)
{
    QMap<QString, QByteArray> files;
    for (int i = 0; i < count; ++i)
        files.insert(QStringLiteral("%1.wav").arg(i), prefix + noise(20000, i));
    return files;
}

// The program's next write into folder, which clears what a killed one left there.
void nextWrite(const QString &folder)
{
    ASSERT_TRUE(writeFileSafely(folder + "/weiter", {}));
    QFile::remove(folder + "/weiter");
}

TEST_F(StickTest, KillsDuringASaveOrAnOpenLeaveTheOldFilesOrTheNewOnes)
{
    QMap<QString, QByteArray> old = soundFiles(20, "alt");
    setFolder(m_program, old);
    CommandsFixture window(m_program);
    window.host->names = namesUpTo(10, "alt");
    window.saveAs(program("lok.spj"));
    old.insert("lok.spj", readFile(program("lok.spj")));
    window.host->names = namesUpTo(20, "neu");
    window.host->path = program("lok.spj");
    // Each file of a save is replaced on its own; the project is what must never mix.
    const auto projectAndTemporaries = [&] {
        QMap<QString, QByteArray> files = snapshot(m_program);
        files.removeIf([](const auto &file) {
            return file.key() != "lok.spj" && !file.key().startsWith(SafeFilePrefix);
        });
        return files;
    };
    expectOldOrNewAfterKills([&] { window.commands.save(); }, m_program, old, projectAndTemporaries,
                             [&] { nextWrite(m_program); });

    // An open of another project over the old files; they all change together.
    setFolder(m_program, soundFiles(20, "neu"));
    window.saveAs(m_disk.path + "/neu.spj");
    ASSERT_TRUE(window.host->messages.isEmpty());
    expectOldOrNewAfterKills([&] { window.open(m_disk.path + "/neu.spj"); }, m_program, old,
                             [&] { return snapshot(m_program); }, [&] { nextWrite(m_program); });
}

} // namespace
} // namespace klangor
