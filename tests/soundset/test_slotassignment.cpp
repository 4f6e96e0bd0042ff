#include "platform/safefile.h"
#include "soundset/slotassignment.h"
#include "support/fakes.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QTemporaryDir>
#include <QUrl>

namespace klangor {
namespace {

class SlotAssignerTest : public ::testing::Test
{
protected:
    QTemporaryDir m_program;
    QTemporaryDir m_sounds;
    test::RecordingMessages m_messages;
    RiffWaveAudioDevice m_device;
    WaveChecker m_checker{m_device, m_messages};
    SlotAssigner m_assigner{m_program.path(), m_checker, m_messages};
    SlotFileNames m_names;

    QString sound(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_sounds.filePath(name);
        EXPECT_TRUE(test::writeFile(path, bytes));
        return path;
    }
    QByteArray working(int n)
    {
        return test::readFile(m_program.filePath(QStringLiteral("%1.wav").arg(n)));
    }
};

TEST_F(SlotAssignerTest, TakesACheckedFileAsAByteCopy)
{
    const QByteArray bytes = test::makeWav({});
    const QString path = sound(QStringLiteral("horn.wav"), bytes);
    EXPECT_EQ(
        m_assigner.assign(m_names, 37, QStringLiteral("horn.wav"), path, AssignWay::DoubleClick),
        AssignOutcome::Taken);
    EXPECT_EQ(m_names.at(37), QStringLiteral("horn.wav"));
    EXPECT_EQ(working(37), bytes);
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(SlotAssignerTest, ReplacesAnEarlierSoundWithoutAsking)
{
    test::WavSpec longer;
    longer.dataBytes = 5000;
    const QString first = sound(QStringLiteral("a.wav"), test::makeWav(longer));
    const QByteArray shortBytes = test::makeWav({});
    const QString second = sound(QStringLiteral("b.wav"), shortBytes);
    m_assigner.assign(m_names, 5, QStringLiteral("a.wav"), first, AssignWay::DoubleClick);
    EXPECT_EQ(m_assigner.assign(m_names, 5, second, second, AssignWay::Drop), AssignOutcome::Taken);
    EXPECT_EQ(m_names.at(5), second);
    EXPECT_EQ(working(5), shortBytes); // no bytes of the longer file survive
}

TEST_F(SlotAssignerTest, RefusedFileChangesNothing)
{
    const QByteArray old = test::makeWav({});
    ASSERT_TRUE(test::writeFile(m_program.filePath(QStringLiteral("3.wav")), old));
    m_names.set(3, QStringLiteral("old.wav"));
    test::WavSpec stereo;
    stereo.channels = 2;
    const QString path = sound(QStringLiteral("stereo.wav"), test::makeWav(stereo));
    EXPECT_EQ(
        m_assigner.assign(m_names, 3, QStringLiteral("stereo.wav"), path, AssignWay::DoubleClick),
        AssignOutcome::Refused);
    EXPECT_EQ(m_names.at(3), QStringLiteral("old.wav"));
    EXPECT_EQ(working(3), old);
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown.first().title, QStringLiteral("Zuviel Soundkanal"));
}

TEST_F(SlotAssignerTest, FailedCopyRestoresTheNameAndTellsTheUser)
{
    const QByteArray old = test::makeWav({});
    ASSERT_TRUE(test::writeFile(m_program.filePath(QStringLiteral("9.wav")), old));
    m_names.set(9, QStringLiteral("old.wav"));
    const QString path = sound(QStringLiteral("new.wav"), test::makeWav({}));
    // A program folder that vanished cannot take the copy.
    SlotAssigner broken(m_program.filePath(QStringLiteral("gone")), m_checker, m_messages);
    EXPECT_EQ(broken.assign(m_names, 9, QStringLiteral("new.wav"), path, AssignWay::DoubleClick),
              AssignOutcome::CopyFailed);
    EXPECT_EQ(m_names.at(9), QStringLiteral("old.wav"));
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown.first().title, QStringLiteral("Kopieren fehlgeschlagen"));
    EXPECT_TRUE(m_messages.shown.first().text.contains(QStringLiteral("9.wav")));
}

TEST_F(SlotAssignerTest, WorkingFileItselfAsSourceKeepsItsBytes)
{
    const QByteArray bytes = test::makeWav({});
    const QString working0 = m_program.filePath(QStringLiteral("0.wav"));
    ASSERT_TRUE(test::writeFile(working0, bytes));
    EXPECT_EQ(m_assigner.assign(m_names, 0, working0, working0, AssignWay::Drop),
              AssignOutcome::Taken);
    EXPECT_EQ(working(0), bytes);
}

TEST_F(SlotAssignerTest, DoubleClickMakesAReadOnlyWorkingFileWritable)
{
    const QString target = m_program.filePath(QStringLiteral("12.wav"));
    ASSERT_TRUE(test::writeFile(target, "old"));
    ASSERT_TRUE(QFile::setPermissions(target, QFile::ReadOwner | QFile::ReadUser));
    const QString path = sound(QStringLiteral("x.wav"), test::makeWav({}));
    EXPECT_EQ(m_assigner.assign(m_names, 12, QStringLiteral("x.wav"), path, AssignWay::DoubleClick),
              AssignOutcome::Taken);
    EXPECT_TRUE(QFile::permissions(target) & QFile::WriteOwner);
    EXPECT_EQ(working(12), test::readFile(path));
}

TEST(ClearReadOnly, GivesTheOwnerWriteAndIgnoresMissingFiles)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("soundlist.dat"));
    ASSERT_TRUE(test::writeFile(path, "x"));
    ASSERT_TRUE(QFile::setPermissions(path, QFile::ReadOwner));
    ClearReadOnly(path);
    EXPECT_EQ(QFile::permissions(path) & (QFile::ReadOwner | QFile::WriteOwner),
              QFile::ReadOwner | QFile::WriteOwner);
    ClearReadOnly(dir.filePath(QStringLiteral("missing.dat"))); // no crash, nothing created
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("missing.dat"))));
    ClearReadOnly(QString());
}

TEST(Drop, FormatsInOrder)
{
    const QString folder = QStringLiteral("/home/u/sounds");
    struct Case
    {
        const char *name;
        DropPayload payload;
        std::optional<DropChoice> expected;
    };
    const Case cases[] = {
        {"text is a name in the browsed folder",
         {QStringLiteral("a.wav"), {}},
         DropChoice{QStringLiteral("a.wav"), QStringLiteral("/home/u/sounds/a.wav")}},
        {"text without .wav still goes to the check",
         {QStringLiteral("notes.txt"), {}},
         DropChoice{QStringLiteral("notes.txt"), QStringLiteral("/home/u/sounds/notes.txt")}},
        {"text wins over files",
         {QStringLiteral("a.wav"), {QStringLiteral("/x/b.wav")}},
         DropChoice{QStringLiteral("a.wav"), QStringLiteral("/home/u/sounds/a.wav")}},
        {"file list: full path",
         {std::nullopt, {QStringLiteral("/x/b.wav")}},
         DropChoice{QStringLiteral("/x/b.wav"), QStringLiteral("/x/b.wav")}},
        {"capital extension",
         {std::nullopt, {QStringLiteral("/x/B.WAV")}},
         DropChoice{QStringLiteral("/x/B.WAV"), QStringLiteral("/x/B.WAV")}},
        {"mixed case extension",
         {std::nullopt, {QStringLiteral("/x/c.WaV")}},
         DropChoice{QStringLiteral("/x/c.WaV"), QStringLiteral("/x/c.WaV")}},
        {"only the first file counts",
         {std::nullopt, {QStringLiteral("/x/a.wav"), QStringLiteral("/x/b.wav")}},
         DropChoice{QStringLiteral("/x/a.wav"), QStringLiteral("/x/a.wav")}},
        {"first is no WAV: nothing, even if others are",
         {std::nullopt, {QStringLiteral("/x/a.mp3"), QStringLiteral("/x/b.wav")}},
         std::nullopt},
        {".wave is no WAV", {std::nullopt, {QStringLiteral("/x/a.wave")}}, std::nullopt},
        {"nothing offered", {std::nullopt, {}}, std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto choice = chooseDrop(c.payload, folder);
        ASSERT_EQ(choice.has_value(), c.expected.has_value());
        if (choice) {
            EXPECT_EQ(choice->slotText, c.expected->slotText);
            EXPECT_EQ(choice->sourcePath, c.expected->sourcePath);
        }
    }
}

TEST(Drop, PayloadFromMimeData)
{
    QMimeData fromList; // our own file list drags the bare name as text
    fromList.setText(QStringLiteral("horn.wav"));
    DropPayload p = dropPayloadFrom(fromList);
    EXPECT_EQ(p.text, QStringLiteral("horn.wav"));
    EXPECT_TRUE(p.files.isEmpty());

    QMimeData fromFileManager; // file managers add the URLs as text as well
    fromFileManager.setUrls({QUrl::fromLocalFile(QStringLiteral("/x/a.wav")),
                             QUrl::fromLocalFile(QStringLiteral("/x/b.wav"))});
    fromFileManager.setText(QStringLiteral("file:///x/a.wav\r\nfile:///x/b.wav\r\n"));
    p = dropPayloadFrom(fromFileManager);
    EXPECT_FALSE(p.text.has_value());
    EXPECT_EQ(p.files, (QStringList{QStringLiteral("/x/a.wav"), QStringLiteral("/x/b.wav")}));

    QMimeData both; // text that is not the files themselves stays text, and wins
    both.setUrls({QUrl::fromLocalFile(QStringLiteral("/x/a.wav"))});
    both.setText(QStringLiteral("other.wav"));
    p = dropPayloadFrom(both);
    EXPECT_EQ(p.text, QStringLiteral("other.wav"));

    QMimeData remote; // only local files make a file list
    remote.setUrls({QUrl(QStringLiteral("https://example.org/a.wav"))});
    p = dropPayloadFrom(remote);
    EXPECT_TRUE(p.files.isEmpty());
}

TEST(PathInFolder, JoinsLiterally)
{
    EXPECT_EQ(pathInFolder(QStringLiteral("/a/b"), QStringLiteral("c.wav")),
              QStringLiteral("/a/b/c.wav"));
    EXPECT_EQ(pathInFolder(QStringLiteral("/"), QStringLiteral("c.wav")), QStringLiteral("/c.wav"));
}

} // namespace
} // namespace klangor
