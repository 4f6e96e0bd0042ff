#include "platform/codepage.h"
#include "project/arrayfile.h"
#include "project/soundprojectfile.h"
#include "projecttesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QTemporaryDir>
#include <sys/stat.h>
#include <unistd.h>

namespace klangor {
namespace {

using test::counted;
using test::plainRecords;
using test::projectBytes;
using test::readFile;
using test::snapshot;
using test::writeFile;

QByteArray emptyNames()
{
    return arrayFileBytes(StringArray::oneDimensional(0, 87)).value();
}

class SoundProjectTest : public ::testing::Test
{
protected:
    QString program(const QString &name) const { return m_program.filePath(name); }
    QString projectFile() const { return m_projects.filePath("lok.spj"); }

    QTemporaryDir m_program;
    QTemporaryDir m_projects;
    SoundProjectFile m_saver{m_program.path()};
};

// 90 records of counted name and data: the working file of each assigned sound number, the
// placeholder for every other, then sound.arr and cvlist.dat; names carry the program folder.
TEST_F(SoundProjectTest, RecordsInOrderWithShortAndLongCounts)
{
    const QByteArray sound = test::noise(test::FullSoundBytes, 5); // needs the long count
    SlotFileNames names;
    names.set(5, "bremsen.wav");
    ASSERT_TRUE(writeFile(program("5.wav"), sound));
    ASSERT_TRUE(writeFile(program("7.wav"), "nicht zugewiesen"));
    ASSERT_TRUE(writeFile(program("sound.arr"), emptyNames()));
    ASSERT_TRUE(writeFile(program("cvlist.dat"), "CV1=3\r\nCV2=5\r\n"));
    ASSERT_TRUE(writeFile(projectFile(), QByteArray(300000, 'p'))); // older and longer
    ASSERT_TRUE(m_saver.SaveProject(projectFile(), names));

    const QByteArray f = toWindows1252(m_program.path()).replace('/', '\\') + '\\';
    QList<std::pair<QByteArray, QByteArray>> records;
    for (int i = 0; i < 88; ++i)
        records.append({f + (i == 5 ? "5.wav" : "placeholder.dat"), i == 5 ? sound : ""});
    records.append({f + "sound.arr", emptyNames()});
    records.append({f + "cvlist.dat", "CV1=3\r\nCV2=5\r\n"});
    const QByteArray file = readFile(projectFile());
    EXPECT_EQ(file, projectBytes(records));
    const Result<LoadedProject> loaded = parseProject(file, projectFile());
    ASSERT_TRUE(loaded && loaded.value().file("5.wav"));
    EXPECT_EQ(*loaded.value().file("5.wav"), sound);
}

TEST(RestoredFileNameTest, OnlyTheProgramsOwnFilesAreRestored)
{
    const QList<std::pair<QString, QString>> cases = {
        {"C:\\K\\87.wav", "87.wav"},        {"\\K/sub\\cvlist.dat", "cvlist.dat"},
        {"..\\..\\sound.arr", "sound.arr"}, {"C:\\K\\88.wav", QString()},
        {"C:\\K\\05.wav", QString()},       {"C:\\K\\5.WAV", QString()},
        {"C:\\K\\sndburn.exe", QString()},  {"C:\\K\\cvdiesele.dat", QString()},
        {"C:\\K\\..", QString()},
    };
    for (const auto &[recordName, restored] : cases)
        EXPECT_EQ(restoredFileName(recordName), restored) << recordName.toStdString();
}

TEST(ParseProjectTest, DamagedProjectsAreRefusedWhole)
{
    const QByteArray whole = projectBytes(plainRecords(emptyNames()));
    auto withLong = plainRecords(emptyNames());
    withLong[0] = {"C:\\K\\0.wav", test::noise(70000, 9)};
    const QByteArray longProject = projectBytes(withLong);
    auto nameless = plainRecords(emptyNames());
    nameless[40].first.clear();
    const auto with = [](int i, const QByteArray &name, const QByteArray &data) {
        auto records = plainRecords(emptyNames());
        records[i] = {name, data};
        return projectBytes(records);
    };
    // A left-out record is never read, whatever its size; a name of 260 bytes is still one.
    const Result<LoadedProject> bounded =
        parseProject(with(3, QByteArray(260, 'n'), QByteArray(5 << 20, 'x')), "x.spj");
    ASSERT_TRUE(bounded);
    EXPECT_EQ(bounded.value().leftOut, QStringList(QString(260, 'n')));
    const QList<std::pair<const char *, QByteArray>> cases = {
        {"name of 261 bytes", with(3, QByteArray(261, 'n'), {})},
        {"CV list over 256 kB", with(89, "C:\\K\\cvlist.dat", QByteArray((256 << 10) + 1, '1'))},
        {"sound over 4 MB", with(0, "C:\\K\\0.wav", QByteArray((4 << 20) + 1, '\0'))},
        {"empty file", QByteArray()},
        {"name cut", whole.left(10)},
        {"89 records", whole.left(whole.size() - (2 + 15) - (2 + 2))},
        {"last byte missing", whole.left(whole.size() - 1)},
        {"long data cut", longProject.left(2 + 10 + 6 + 1000)},
        {"long length cut", longProject.left(2 + 10 + 3)},
        {"length claims 4 GB", counted("ab") + QByteArray(6, '\xFF')},
        {"3 GB claimed in a small file", counted("ab") + QByteArray("\xFF\xFF\0\0\0\xC0x", 7)},
        {"record without a name", projectBytes(nameless)},
    };
    for (const auto &[what, bytes] : cases) {
        const Result<LoadedProject> project = parseProject(bytes, "x.spj");
        ASSERT_FALSE(project) << what;
        EXPECT_TRUE(project.error().text.contains("unvollständig oder beschädigt"));
    }
    // Bytes after record 89 are never read.
    EXPECT_TRUE(parseProject(longProject + "Nachspann", "x.spj"));
}

TEST_F(SoundProjectTest, SaveReadsOnlyRegularFilesAndKeepsTheOldProjectOnFailure)
{
    SlotFileNames names;
    names.set(3, "x.wav");
    ASSERT_TRUE(writeFile(program("sound.arr"), emptyNames()));
    ASSERT_TRUE(writeFile(projectFile(), "altes Projekt"));
    // A placeholder that is no regular file is the program's own to replace.
    ASSERT_EQ(::symlink("/dev/zero", QFile::encodeName(program("placeholder.dat"))), 0);

    const QString working = program("3.wav");
    const std::function<void()> unreadable[] = {
        [&] { ::mkfifo(QFile::encodeName(working), 0600); },
        [&] { ::symlink("/dev/zero", QFile::encodeName(working)); },
    };
    for (const auto &make : unreadable) {
        make();
        const Status saved = m_saver.SaveProject(projectFile(), names);
        ASSERT_FALSE(saved.ok());
        EXPECT_TRUE(saved.error().text.contains("keine gewöhnliche Datei"));
        EXPECT_TRUE(saved.error().text.contains("nicht gespeichert"));
        EXPECT_EQ(readFile(projectFile()), QByteArray("altes Projekt"));
        QFile::remove(working);
    }

    // A missing working file is created empty; the placeholder is now an empty regular file.
    ASSERT_TRUE(m_saver.SaveProject(projectFile(), names));
    EXPECT_TRUE(QFileInfo(program("3.wav")).isFile());
    const QFileInfo placeholder(program("placeholder.dat"));
    EXPECT_TRUE(placeholder.isFile() && !placeholder.isSymLink() && placeholder.size() == 0);
}

} // namespace
} // namespace klangor
