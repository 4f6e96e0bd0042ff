#include "soundset/slotassignment.h"
#include "support/printers.h"
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
    Status assign(SlotAssigner &assigner, SlotFileNames &names, int number, const QString &text,
                  const QString &source, AssignWay way)
    {
        const Status prepared = assigner.prepare(number, source, way);
        return prepared ? assigner.take(names, number, text, source) : prepared;
    }
    QString working(int n) { return m_program.filePath(QStringLiteral("%1.wav").arg(n)); }
};

TEST_F(SlotAssignerTest, ReplacesTheWorkingFileByAByteCopy)
{
    const QString longer = sound("a.wav", test::makeWav({.dataBytes = 5000}));
    const QByteArray bytes = test::makeWav({});
    const QString shorter = sound("b.wav", bytes);
    ASSERT_TRUE(test::writeFile(working(5), "old"));
    EXPECT_TRUE(assign(m_assigner, m_names, 5, "a.wav", longer, AssignWay::DoubleClick));
    EXPECT_TRUE(assign(m_assigner, m_names, 5, shorter, shorter, AssignWay::Drop));
    EXPECT_EQ(m_names.at(5), shorter);
    EXPECT_EQ(test::readFile(working(5)), bytes); // no byte of the longer file survives
    // The working file itself as the source keeps its bytes.
    EXPECT_TRUE(assign(m_assigner, m_names, 5, working(5), working(5), AssignWay::Drop));
    EXPECT_EQ(test::readFile(working(5)), bytes);
}

TEST_F(SlotAssignerTest, RefusalOrFailedCopyChangesNothingAndSaysWhy)
{
    const QByteArray old = test::makeWav({});
    ASSERT_TRUE(test::writeFile(working(9), old));
    m_names.set(9, "old.wav");
    const QString stereo = sound("stereo.wav", test::makeWav({.channels = 2}));
    const QString good = sound("new.wav", test::makeWav({.dataBytes = 70}));
    SlotAssigner gone(m_program.filePath("gone"), m_checker);

    const Status refused = assign(m_assigner, m_names, 9, "s", stereo, AssignWay::Drop);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().title, "Zuviel Soundkanal");
    const Status failed = assign(gone, m_names, 9, "n", good, AssignWay::DoubleClick);
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().title, "Kopieren fehlgeschlagen");
    EXPECT_TRUE(failed.error().text.contains("\"9.wav\""));
    EXPECT_EQ(m_names.at(9), "old.wav");
    EXPECT_EQ(test::readFile(working(9)), old);
}

// Text first (a name in the browsed folder), unless it names local files; then the first
// file, if it is a WAV file in any letter case.
TEST(Drop, WhatADropAssigns)
{
    const struct Case
    {
        QStringList files;
        QString text, slotText, source; // slotText "": nothing is assigned
    } cases[] = {
        {{}, "horn.wav", "horn.wav", "/home/u/horn.wav"},
        {{"/x/a.wav"}, "n.txt", "n.txt", "/home/u/n.txt"},
        {{"/x/B.WaV", "/x/a.wav"},
         "file:///x/B.WaV\r\nfile:///x/a.wav\r\n",
         "/x/B.WaV",
         "/x/B.WaV"},
        // a file manager's text: the file's URL percent-encoded, its URL as is, its path
        {{"/x/Glocke ä.wav"},
         "file:///x/Glocke%20%C3%A4.wav",
         "/x/Glocke ä.wav",
         "/x/Glocke ä.wav"},
        {{}, "file:///x/Glocke%20%C3%A4.wav\n", "/x/Glocke ä.wav", "/x/Glocke ä.wav"},
        {{}, "file:///x/Glocke ä.wav", "/x/Glocke ä.wav", "/x/Glocke ä.wav"},
        {{}, "/x/Glocke ä.wav", "/x/Glocke ä.wav", "/x/Glocke ä.wav"},
        {{}, "http://x/a.wav", "http://x/a.wav", "/home/u/http://x/a.wav"},
        {{"/x/a.mp3", "/x/a.wav"}, "", "", ""},
        {{"/x/a.wave"}, "", "", ""},
        {{}, "", "", ""},
    };
    for (const Case &c : cases) {
        QMimeData mime;
        QList<QUrl> urls;
        for (const QString &file : c.files)
            urls << QUrl::fromLocalFile(file);
        if (!urls.isEmpty())
            mime.setUrls(urls);
        if (!c.text.isEmpty())
            mime.setText(c.text);
        const auto choice = chooseDrop(dropPayloadFrom(mime), "/home/u");
        EXPECT_EQ(choice ? choice->slotText : QString(), c.slotText)
            << c.files.join(' ').toStdString();
        EXPECT_EQ(choice ? choice->sourcePath : QString(), c.source);
    }
}

} // namespace
} // namespace klangor
