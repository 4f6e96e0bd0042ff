#include "platform/codepage.h"
#include "project/arrayfile.h"
#include "project/soundproject.h"
#include "projecttesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QFileInfo>
#include <QTemporaryDir>

namespace klangor {
namespace {

using test::counted;
using test::readFile;
using test::snapshot;
using test::writeFile;

// Record names spell the folder with backslashes, whatever the platform writes.
QString backslashed(const QString &folder)
{
    QString out = folder;
    out.replace(QLatin1Char('/'), QLatin1Char('\\'));
    return out;
}

class SoundProjectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_program.isValid());
        ASSERT_TRUE(m_other.isValid());
        ASSERT_TRUE(m_projects.isValid());
    }

    // What the save commands write just before a project: cvlist.dat and sound.arr.
    void writeLists(const QString &folder, const SlotFileNames &names, const QByteArray &cv)
    {
        StringArray array = StringArray::oneDimensional(0, 87);
        for (int i = 0; i < 88; ++i)
            array.setElement(i, names.at(i));
        ASSERT_TRUE(WriteArrayFile(QDir(folder).filePath(QStringLiteral("sound.arr")), array));
        ASSERT_TRUE(writeFile(QDir(folder).filePath(QStringLiteral("cvlist.dat")), cv));
    }

    QString program(const QString &name) const { return m_program.filePath(name); }
    QString other(const QString &name) const { return m_other.filePath(name); }
    QString projectFile(const QString &name = QStringLiteral("lok.spj")) const
    {
        return m_projects.filePath(name);
    }

    QTemporaryDir m_program;
    QTemporaryDir m_other;
    QTemporaryDir m_projects;
};

TEST(LastPathComponentTest, TakesTheTextAfterTheLastBackslash)
{
    const QList<std::pair<QString, QString>> cases = {
        {QStringLiteral("C:\\K\\5.wav"), QStringLiteral("5.wav")},
        {QStringLiteral("5.wav"), QStringLiteral("5.wav")},
        {QStringLiteral("C:\\K\\"), QString()},
        {QStringLiteral("a/b"), QStringLiteral("a/b")},
        {QStringLiteral("\\opt\\k\\placeholder.dat"), QStringLiteral("placeholder.dat")},
        {QString(), QString()},
    };
    for (const auto &[path, expected] : cases)
        EXPECT_EQ(LastPathComponent(path), expected) << path.toStdString();
}

TEST(RecordFolderTest, JoinsFoldersWithBackslashes)
{
    EXPECT_EQ(recordFolder(QStringLiteral("/opt/k")), QStringLiteral("\\opt\\k"));
    EXPECT_EQ(recordFolder(QStringLiteral("/opt/k/")), QStringLiteral("\\opt\\k"));
    EXPECT_EQ(recordFolder(QStringLiteral("/")), QString());
    EXPECT_EQ(recordFolder(QStringLiteral("C:/K")), QStringLiteral("C:\\K"));
}

TEST(RestoredFileNameTest, AcceptsOnlyPlainFileNames)
{
    struct Case
    {
        QString recordName;
        QString restored; // "" when refused
    };
    const QList<Case> cases = {
        {QStringLiteral("C:\\K\\5.wav"), QStringLiteral("5.wav")},
        {QStringLiteral("/opt/k/5.wav"), QStringLiteral("5.wav")},
        {QStringLiteral("..\\..\\x"), QStringLiteral("x")},
        {QStringLiteral("a/b"), QStringLiteral("b")},
        {QStringLiteral("\\opt\\k/sub\\cvlist.dat"), QStringLiteral("cvlist.dat")},
        {QStringLiteral("Geräusch.wav"), QStringLiteral("Geräusch.wav")},
        {QString(), QString()},
        {QStringLiteral("C:\\K\\"), QString()},
        {QStringLiteral("C:\\K\\."), QString()},
        {QStringLiteral("C:\\K\\.."), QString()},
        {QStringLiteral(".."), QString()},
        {QStringLiteral("a/"), QString()},
        {QStringLiteral("C:x.wav"), QString()},
        {QStringLiteral("C:"), QString()},
        {QStringLiteral("x\twav"), QString()},
        {QStringLiteral("a*b"), QString()},
        {QStringLiteral("\\K\\NUL"), QString()},
        {QStringLiteral("\\K\\com1.wav"), QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.recordName.toStdString());
        const Result<QString> name = restoredFileName(c.recordName);
        EXPECT_EQ(name.ok(), !c.restored.isEmpty());
        if (name.ok())
            EXPECT_EQ(name.value(), c.restored);
        else
            EXPECT_TRUE(name.error().text.contains(QStringLiteral("kein gültiger Dateiname")));
    }
}

TEST_F(SoundProjectTest, EmptyProjectHasEightyEightPlaceholdersThenSoundArrAndCvList)
{
    const SlotFileNames names;
    writeLists(m_program.path(), names, "CV1=3\r\nCV2=5\r\n");
    ASSERT_FALSE(QFile::exists(program(QStringLiteral("placeholder.dat"))));

    SaveSoundProjekt projects(m_program.path());
    ASSERT_TRUE(projects.SaveProject(projectFile(), names));

    const QString f = backslashed(m_program.path());
    QByteArray expected;
    for (int i = 0; i < 88; ++i)
        expected +=
            counted(toWindows1252(f + QStringLiteral("\\placeholder.dat"))) + QByteArray(2, '\0');
    const QByteArray soundArr = QByteArray::fromHex("010000000000") +
                                QByteArray::fromHex("57000000") + QByteArray(176, '\0');
    expected += counted(toWindows1252(f + QStringLiteral("\\sound.arr"))) +
                QByteArray::fromHex("BA00") + soundArr;
    expected += counted(toWindows1252(f + QStringLiteral("\\cvlist.dat"))) +
                QByteArray::fromHex("0E00") + "CV1=3\r\nCV2=5\r\n";
    EXPECT_EQ(readFile(projectFile()), expected);

    // placeholder.dat now exists, empty.
    EXPECT_TRUE(QFileInfo(program(QStringLiteral("placeholder.dat"))).isFile());
    EXPECT_EQ(readFile(program(QStringLiteral("placeholder.dat"))), QByteArray());

    EXPECT_EQ(projects.projectFileList()[0], f + QStringLiteral("\\placeholder.dat"));
    EXPECT_EQ(projects.projectFileList()[88], f + QStringLiteral("\\sound.arr"));
    EXPECT_EQ(projects.projectFileList()[89], f + QStringLiteral("\\cvlist.dat"));
    EXPECT_EQ(projects.projectRecords()[88].data, soundArr);
    EXPECT_FALSE(projects.projectFileList()[0].contains(QLatin1Char('/')));
}

TEST_F(SoundProjectTest, AssignedSoundsAreStoredUnderTheirWorkingFileNames)
{
    SlotFileNames names;
    names.set(0, QStringLiteral("anfahren.wav"));
    names.set(71, QStringLiteral("pfiff.wav"));
    writeLists(m_program.path(), names, "");
    ASSERT_TRUE(writeFile(program(QStringLiteral("0.wav")), "null"));
    ASSERT_TRUE(writeFile(program(QStringLiteral("71.wav")), "einundsiebzig"));
    ASSERT_TRUE(writeFile(program(QStringLiteral("5.wav")), "nicht zugewiesen"));

    SaveSoundProjekt projects(m_program.path());
    ASSERT_TRUE(projects.SaveProject(projectFile(), names));
    const QString f = backslashed(m_program.path());
    const ProjectRecords &records = projects.projectRecords();
    EXPECT_EQ(records[0], (ProjectRecord{f + QStringLiteral("\\0.wav"), "null"}));
    EXPECT_EQ(records[71], (ProjectRecord{f + QStringLiteral("\\71.wav"), "einundsiebzig"}));
    EXPECT_EQ(records[5], (ProjectRecord{f + QStringLiteral("\\placeholder.dat"), QByteArray()}));
    EXPECT_EQ(records[72].name, f + QStringLiteral("\\placeholder.dat"));

    const QByteArray file = readFile(projectFile());
    EXPECT_TRUE(
        file.startsWith(counted(toWindows1252(f + QStringLiteral("\\0.wav"))) + counted("null")));
}

TEST_F(SoundProjectTest, FullLengthSixteenBitSoundIsRestoredByteForByteInAnotherFolder)
{
    const QByteArray sound = test::wave16(test::FullSoundDataBytes, 5);
    ASSERT_GT(sound.size(), 130000);
    SlotFileNames names;
    names.set(5, QStringLiteral("bremsen.wav"));
    writeLists(m_program.path(), names, "CV\r\n");
    ASSERT_TRUE(writeFile(program(QStringLiteral("5.wav")), sound));

    SaveSoundProjekt saving(m_program.path());
    ASSERT_TRUE(saving.SaveProject(projectFile(), names));

    // The data of record 5 takes the long form: 0xFFFF, then the length as unsigned 32-bit.
    const QByteArray file = readFile(projectFile());
    const QByteArray name5 =
        counted(toWindows1252(backslashed(m_program.path()) + QStringLiteral("\\5.wav")));
    const qsizetype at = file.indexOf(name5);
    ASSERT_GE(at, 0);
    QByteArray length(4, '\0');
    qToLittleEndian(static_cast<quint32>(sound.size()), length.data());
    EXPECT_EQ(file.mid(at + name5.size(), 6), QByteArray("\xFF\xFF", 2) + length);

    // Another program folder, with an older, longer working file 5 and a longer cvlist.dat.
    ASSERT_TRUE(writeFile(other(QStringLiteral("5.wav")), QByteArray(200000, 'x')));
    ASSERT_TRUE(writeFile(other(QStringLiteral("cvlist.dat")), QByteArray(500, 'c')));
    ASSERT_TRUE(writeFile(other(QStringLiteral("7.wav")), "alt"));
    SaveSoundProjekt opening(m_other.path());
    ASSERT_TRUE(opening.OpenProject(projectFile(), m_other.path() + QLatin1Char('/')));

    EXPECT_EQ(readFile(other(QStringLiteral("5.wav"))), sound);
    EXPECT_EQ(readFile(other(QStringLiteral("cvlist.dat"))), QByteArray("CV\r\n"));
    EXPECT_EQ(readFile(other(QStringLiteral("sound.arr"))),
              readFile(program(QStringLiteral("sound.arr"))));
    EXPECT_EQ(readFile(other(QStringLiteral("placeholder.dat"))), QByteArray());
    EXPECT_EQ(readFile(other(QStringLiteral("7.wav"))), QByteArray("alt")); // unassigned: untouched
    EXPECT_EQ(opening.projectRecords(), saving.projectRecords());
    // Nothing was written into the folder the project was saved from.
    EXPECT_EQ(readFile(program(QStringLiteral("5.wav"))), sound);
}

TEST_F(SoundProjectTest, SavingOverALongerProjectLeavesNoOldBytes)
{
    ASSERT_TRUE(writeFile(projectFile(), QByteArray(1000000, 'p')));
    const SlotFileNames names;
    writeLists(m_program.path(), names, "");
    SaveSoundProjekt projects(m_program.path());
    ASSERT_TRUE(projects.SaveProject(projectFile(), names));
    const Result<QByteArray> expected = projectFileBytes(projects.projectRecords());
    ASSERT_TRUE(expected);
    EXPECT_EQ(readFile(projectFile()), expected.value());
}

TEST_F(SoundProjectTest, FailedSaveIsReportedAndKeepsTheOldProject)
{
    SlotFileNames names;
    names.set(3, QStringLiteral("x.wav"));
    writeLists(m_program.path(), names, "");
    ASSERT_TRUE(writeFile(projectFile(), "altes Projekt"));
    SaveSoundProjekt projects(m_program.path());

    // A working file that cannot be read: nothing is written.
    ASSERT_TRUE(QDir(m_program.path()).mkdir(QStringLiteral("3.wav")));
    Status saved = projects.SaveProject(projectFile(), names);
    ASSERT_FALSE(saved.ok());
    EXPECT_TRUE(saved.error().text.contains(QStringLiteral("nicht gespeichert")));
    EXPECT_EQ(readFile(projectFile()), QByteArray("altes Projekt"));
    ASSERT_TRUE(QDir(m_program.path()).rmdir(QStringLiteral("3.wav")));

    // A project file that cannot be created.
    const QString nowhere = m_projects.filePath(QStringLiteral("fehlt/lok.spj"));
    saved = projects.SaveProject(nowhere, names);
    ASSERT_FALSE(saved.ok());
    EXPECT_TRUE(saved.error().text.contains(QStringLiteral("kann nicht gespeichert werden")));
    EXPECT_FALSE(QFile::exists(nowhere));
    // A listed working file that is missing is created empty, as placeholder.dat is.
    EXPECT_TRUE(QFile::exists(program(QStringLiteral("3.wav"))));
}

// Builds a project file by hand from (name, data) pairs.
QByteArray projectBytes(const QList<std::pair<QByteArray, QByteArray>> &records)
{
    QByteArray out;
    for (const auto &[name, data] : records)
        out += counted(name) + counted(data);
    return out;
}

QList<std::pair<QByteArray, QByteArray>> plainRecords(const QByteArray &folder)
{
    QList<std::pair<QByteArray, QByteArray>> records;
    for (int i = 0; i < 88; ++i)
        records.append({folder + "\\placeholder.dat", QByteArray()});
    StringArray names = StringArray::oneDimensional(0, 87);
    records.append({folder + "\\sound.arr", arrayFileBytes(names).value()});
    records.append({folder + "\\cvlist.dat", "CV"});
    return records;
}

TEST_F(SoundProjectTest, RecordNamesDecideTheFileAndNeverLeaveTheTargetFolder)
{
    struct Case
    {
        QByteArray name;
        QString restoredAs; // "" when the project is refused
    };
    const QList<Case> cases = {
        {"..\\..\\x", QStringLiteral("x")},
        {"a/b", QStringLiteral("b")},
        {"C:\\Windows\\system.ini", QStringLiteral("system.ini")},
        {"/tmp/anderswo/abs.wav", QStringLiteral("abs.wav")},
        {"", QString()},
        {"C:\\K\\..", QString()},
        {"..\\", QString()},
        {"\\K\\a:b", QString()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name.toStdString());
        QTemporaryDir outer;
        const QString target = outer.filePath(QStringLiteral("a/b/program"));
        ASSERT_TRUE(QDir().mkpath(target));
        ASSERT_TRUE(writeFile(QDir(target).filePath(QStringLiteral("cvlist.dat")), "vorher"));

        auto records = plainRecords("C:\\K");
        records[3] = {c.name, "boese"};
        ASSERT_TRUE(writeFile(projectFile(), projectBytes(records)));

        const auto before = snapshot(outer.path());
        SaveSoundProjekt projects(target);
        const Status opened = projects.OpenProject(projectFile(), target);
        if (c.restoredAs.isEmpty()) {
            ASSERT_FALSE(opened.ok());
            EXPECT_TRUE(opened.error().text.contains(QStringLiteral("Eintrag 4")));
            EXPECT_TRUE(opened.error().text.contains(QStringLiteral("Es wurde nichts geändert")));
            EXPECT_EQ(snapshot(outer.path()), before);
        } else {
            ASSERT_TRUE(opened.ok()) << opened.error().text.toStdString();
            EXPECT_EQ(readFile(QDir(target).filePath(c.restoredAs)), QByteArray("boese"));
            // Only files directly in the target folder are new.
            const auto after = snapshot(outer.path());
            for (auto it = after.begin(); it != after.end(); ++it)
                EXPECT_TRUE(it.key().startsWith(QStringLiteral("a/b/program/")) &&
                            !it.key().mid(12).contains(QLatin1Char('/')))
                    << it.key().toStdString();
            EXPECT_FALSE(QFile::exists(QStringLiteral("/tmp/anderswo/abs.wav")));
        }
    }
}

TEST_F(SoundProjectTest, DamagedProjectsAreRefusedWholeAndTouchNothing)
{
    const QByteArray whole = projectBytes(plainRecords("C:\\K"));
    auto withLong = plainRecords("C:\\K");
    withLong[0] = {"C:\\K\\0.wav", test::wave16(70000, 9)};
    const QByteArray longProject = projectBytes(withLong);

    struct Case
    {
        const char *what;
        QByteArray bytes;
    };
    const QList<Case> cases = {
        {"empty file", QByteArray()},
        {"one byte", whole.left(1)},
        {"name cut", whole.left(10)},
        {"data length missing", whole.left(2 + 21)},
        {"89 records", whole.left(whole.size() - (2 + 15) - (2 + 2))},
        {"last byte missing", whole.left(whole.size() - 1)},
        {"long data cut", longProject.left(2 + 10 + 6 + 1000)},
        {"long length cut", longProject.left(2 + 10 + 3)},
        {"huge length claim", QByteArray("\x02\x00"
                                         "ab"
                                         "\xFF\xFF\xFF\xFF\xFF\x7F",
                                         10)},
    };
    ASSERT_TRUE(writeFile(program(QStringLiteral("0.wav")), "mein Sound"));
    ASSERT_TRUE(writeFile(program(QStringLiteral("cvlist.dat")), "meine CVs"));
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(writeFile(projectFile(), c.bytes));
        const auto before = snapshot(m_program.path());
        SaveSoundProjekt projects(m_program.path());
        const Status opened = projects.OpenProject(projectFile(), m_program.path());
        ASSERT_FALSE(opened.ok());
        EXPECT_TRUE(opened.error().text.contains(QStringLiteral("unvollständig oder beschädigt")));
        EXPECT_EQ(snapshot(m_program.path()), before);
        EXPECT_EQ(projects.projectRecords(), ProjectRecords{});
    }

    // The intact files open, and bytes after record 89 are never read.
    ASSERT_TRUE(writeFile(projectFile(), longProject + "Nachspann ohne Bedeutung"));
    SaveSoundProjekt projects(m_program.path());
    ASSERT_TRUE(projects.OpenProject(projectFile(), m_program.path()));
    EXPECT_EQ(readFile(program(QStringLiteral("0.wav"))), test::wave16(70000, 9));
    EXPECT_EQ(readFile(program(QStringLiteral("cvlist.dat"))), QByteArray("CV"));
}

TEST_F(SoundProjectTest, LaterRecordsOfTheSameFileWinAndReadOnlyFilesAreReplaced)
{
    auto records = plainRecords("C:\\K");
    records[10] = {"C:\\K\\10.wav", "erster"};
    records[11] = {"C:\\K\\10.wav", "zweiter"};
    ASSERT_TRUE(writeFile(projectFile(), projectBytes(records)));
    ASSERT_TRUE(writeFile(program(QStringLiteral("10.wav")), "schreibgeschützt"));
    QFile::setPermissions(program(QStringLiteral("10.wav")), QFile::ReadOwner | QFile::ReadUser);

    SaveSoundProjekt projects(m_program.path());
    ASSERT_TRUE(projects.OpenProject(projectFile(), m_program.path()));
    EXPECT_EQ(readFile(program(QStringLiteral("10.wav"))), QByteArray("zweiter"));
    EXPECT_TRUE(QFileInfo(program(QStringLiteral("10.wav"))).permissions() & QFile::WriteOwner);
    EXPECT_EQ(projects.projectRecords()[11].name, QStringLiteral("C:\\K\\10.wav"));
}

TEST_F(SoundProjectTest, MissingProjectFileIsReported)
{
    SaveSoundProjekt projects(m_program.path());
    const Status opened =
        projects.OpenProject(projectFile(QStringLiteral("gibtsnicht.spj")), m_program.path());
    ASSERT_FALSE(opened.ok());
    EXPECT_TRUE(opened.error().text.contains(QStringLiteral("gibtsnicht.spj")));
}

} // namespace
} // namespace klangor
