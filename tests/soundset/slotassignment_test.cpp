#include "soundset/slotassignment.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
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
    RiffWaveAudioDevice m_device;
    WaveChecker m_checker{m_device};
    SlotAssigner m_assigner{m_program.path(), m_checker};
    SlotFileNames m_names;

    QString sound(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_sounds.filePath(name);
        EXPECT_TRUE(test::writeFile(path, bytes));
        return path;
    }
    QString working(int n) { return m_program.filePath(QStringLiteral("%1.wav").arg(n)); }
};

TEST_F(SlotAssignerTest, ReplacesTheWorkingFileByAByteCopy)
{
    const QString longer = sound(QStringLiteral("a.wav"), test::makeWav({.dataBytes = 5000}));
    const QByteArray bytes = test::makeWav({});
    const QString shorter = sound(QStringLiteral("b.wav"), bytes);
    ASSERT_TRUE(test::writeFile(working(5), "old"));
    EXPECT_TRUE(
        m_assigner.assign(m_names, 5, QStringLiteral("a.wav"), longer, AssignWay::DoubleClick));
    EXPECT_TRUE(m_assigner.assign(m_names, 5, shorter, shorter, AssignWay::Drop));
    EXPECT_EQ(m_names.at(5), shorter);
    EXPECT_EQ(test::readFile(working(5)), bytes); // no byte of the longer file survives
    // The working file itself as the source keeps its bytes.
    EXPECT_TRUE(m_assigner.assign(m_names, 5, working(5), working(5), AssignWay::Drop));
    EXPECT_EQ(test::readFile(working(5)), bytes);
}

TEST_F(SlotAssignerTest, RefusalOrFailedCopyChangesNothingAndSaysWhy)
{
    const QByteArray old = test::makeWav({});
    ASSERT_TRUE(test::writeFile(working(9), old));
    m_names.set(9, QStringLiteral("old.wav"));
    const QString stereo = sound(QStringLiteral("stereo.wav"), test::makeWav({.channels = 2}));
    const QString good = sound(QStringLiteral("new.wav"), test::makeWav({.dataBytes = 70}));
    SlotAssigner gone(m_program.filePath(QStringLiteral("gone")), m_checker);

    const Status refused =
        m_assigner.assign(m_names, 9, QStringLiteral("s"), stereo, AssignWay::Drop);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().title, QStringLiteral("Zuviel Soundkanal"));
    const Status failed =
        gone.assign(m_names, 9, QStringLiteral("n"), good, AssignWay::DoubleClick);
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().title, QStringLiteral("Kopieren fehlgeschlagen"));
    EXPECT_TRUE(failed.error().text.contains(QStringLiteral("\"9.wav\"")));
    EXPECT_EQ(m_names.at(9), QStringLiteral("old.wav"));
    EXPECT_EQ(test::readFile(working(9)), old);
}

TEST(Drop, TextFirstThenTheFirstFileIfItIsAWav)
{
    const QString folder = QStringLiteral("/home/u/sounds");
    const QString a = QStringLiteral("/x/a.wav"), mp3 = QStringLiteral("/x/a.mp3");
    const struct Case
    {
        const char *name;
        DropPayload payload;
        std::optional<QString> slotText, source;
    } cases[] = {
        {"text: a name in the browsed folder",
         {QStringLiteral("n.txt"), {a}},
         "n.txt",
         "/home/u/sounds/n.txt"},
        {"first file, any letter case",
         {std::nullopt, {QStringLiteral("/x/B.WaV"), a}},
         "/x/B.WaV",
         "/x/B.WaV"},
        {"first file is no WAV", {std::nullopt, {mp3, a}}, std::nullopt, std::nullopt},
        {".wave is no WAV",
         {std::nullopt, {QStringLiteral("/x/a.wave")}},
         std::nullopt,
         std::nullopt},
        {"nothing", {}, std::nullopt, std::nullopt},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto choice = chooseDrop(c.payload, folder);
        EXPECT_EQ(choice ? std::optional(choice->slotText) : std::nullopt, c.slotText);
        EXPECT_EQ(choice ? std::optional(choice->sourcePath) : std::nullopt, c.source);
    }
}

TEST(Drop, TextThatOnlySpellsTheDroppedFilesIsNoName)
{
    const QUrl a = QUrl::fromLocalFile(QStringLiteral("/x/a.wav"));
    const QUrl b = QUrl::fromLocalFile(QStringLiteral("/x/b.wav"));
    const struct Case
    {
        QList<QUrl> urls;
        QString text;
        std::optional<QString> expectedText;
        QStringList expectedFiles;
    } cases[] = {
        {{}, QStringLiteral("horn.wav"), QStringLiteral("horn.wav"), {}},
        {{a, b},
         QStringLiteral("file:///x/a.wav\r\nfile:///x/b.wav\r\n"),
         std::nullopt,
         {QStringLiteral("/x/a.wav"), QStringLiteral("/x/b.wav")}},
        {{a},
         QStringLiteral("other.wav"),
         QStringLiteral("other.wav"),
         {QStringLiteral("/x/a.wav")}},
        {{QUrl(QStringLiteral("https://x.org/a.wav"))},
         {},
         QStringLiteral("https://x.org/a.wav"),
         {}},
    };
    for (const Case &c : cases) {
        QMimeData mime;
        mime.setUrls(c.urls);
        if (!c.text.isEmpty())
            mime.setText(c.text);
        const DropPayload payload = dropPayloadFrom(mime);
        EXPECT_EQ(payload.text, c.expectedText) << c.text.toStdString();
        EXPECT_EQ(payload.files, c.expectedFiles) << c.text.toStdString();
    }
}

} // namespace
} // namespace klangor
