#include "programming/soundlist.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <set>

namespace klangor {
namespace {

// Lines as the tool reads them; fails the test when a line does not end in CR LF.
QList<QByteArray> crlfLines(const QByteArray &bytes)
{
    QList<QByteArray> lines;
    qsizetype begin = 0;
    while (begin < bytes.size()) {
        const qsizetype end = bytes.indexOf("\r\n", begin);
        EXPECT_NE(end, -1) << "unterminated last line";
        if (end < 0)
            break;
        lines.append(bytes.mid(begin, end - begin));
        begin = end + 2;
    }
    return lines;
}

SlotFileNames namesWith(const std::set<int> &assigned,
                        const QString &name = QStringLiteral("x.wav"))
{
    SlotFileNames names;
    for (int n : assigned)
        names.set(n, name);
    return names;
}

struct ListCase
{
    const char *label;
    std::set<int> assigned;
    int memoryMBit;
    QString entryText;
};

void PrintTo(const ListCase &c, std::ostream *os)
{
    *os << c.label;
}

class SoundListBytes : public ::testing::TestWithParam<ListCase>
{};

TEST_P(SoundListBytes, HasHeaderOnlyFor16MBitAnd88NumberedLines)
{
    const ListCase &c = GetParam();
    const QByteArray bytes = soundListBytes(namesWith(c.assigned, c.entryText), c.memoryMBit);
    QList<QByteArray> lines = crlfLines(bytes);

    if (c.memoryMBit == 16) {
        ASSERT_FALSE(lines.isEmpty());
        EXPECT_EQ(lines.takeFirst(), QByteArray("**16MBit"));
    }
    ASSERT_EQ(lines.size(), 88);
    for (int n = 0; n < 88; ++n) {
        const QByteArray number = QByteArray::number(n);
        const QByteArray prefix = (n < 10 ? "0" + number : number) + ": ";
        const QByteArray expected = prefix + (c.assigned.count(n) ? number + ".wav" : "---");
        EXPECT_EQ(lines[n], expected) << "sound number " << n;
    }
    for (char ch : bytes)
        EXPECT_TRUE(static_cast<unsigned char>(ch) < 0x80) << "non-ASCII byte";
}

std::set<int> range(int first, int last)
{
    std::set<int> numbers;
    for (int n = first; n <= last; ++n)
        numbers.insert(n);
    return numbers;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SoundListBytes,
    ::testing::Values(ListCase{"none_2MBit", {}, 2, {}}, ListCase{"none_16MBit", {}, 16, {}},
                      ListCase{"example_16MBit", {0, 1, 12}, 16, QStringLiteral("lok.wav")},
                      ListCase{"mixed_2MBit", {0, 9, 10, 37, 71}, 2, QStringLiteral("a.wav")},
                      ListCase{"all_slots", range(0, 71), 16, QStringLiteral("s.wav")},
                      ListCase{"beyond_slots", range(72, 87), 2, QStringLiteral("x.wav")},
                      ListCase{"only_blanks_count", {5, 80}, 16, QStringLiteral("   ")}),
    [](const ::testing::TestParamInfo<ListCase> &param) { return std::string(param.param.label); });

TEST(SoundListBytesExact, SpelledOutForTheSmallestFiles)
{
    // 88 lines of "NN: ---\r\n", 9 bytes each; the header adds 10.
    EXPECT_EQ(soundListBytes(SlotFileNames(), 2).size(), 88 * 9);
    EXPECT_EQ(soundListBytes(SlotFileNames(), 16).size(), 10 + 88 * 9);
    EXPECT_TRUE(
        soundListBytes(SlotFileNames(), 16).startsWith("**16MBit\r\n00: ---\r\n01: ---\r\n"));
    EXPECT_TRUE(soundListBytes(SlotFileNames(), 2).startsWith("00: ---\r\n"));
    EXPECT_TRUE(soundListBytes(SlotFileNames(), 2).endsWith("\r\n86: ---\r\n87: ---\r\n"));
    const QByteArray some = soundListBytes(namesWith({0, 5, 9, 10, 87}), 2);
    EXPECT_TRUE(some.startsWith("00: 0.wav\r\n01: ---\r\n"));
    EXPECT_TRUE(some.contains("\r\n05: 5.wav\r\n"));
    EXPECT_TRUE(some.contains("\r\n09: 9.wav\r\n10: 10.wav\r\n11: ---\r\n"));
    EXPECT_TRUE(some.endsWith("\r\n87: 87.wav\r\n"));
    // Neither the text of the entry nor anything but 16 decides.
    EXPECT_EQ(soundListBytes(namesWith({3}, QStringLiteral("C:/wav/Pfiff lang.wav")), 2),
              soundListBytes(namesWith({3}, QStringLiteral("3.wav")), 2));
    EXPECT_EQ(soundListBytes(SlotFileNames(), 8), soundListBytes(SlotFileNames(), 2));
}

class WriteSoundListTest : public ::testing::Test
{
protected:
    QString listPath() const { return m_dir.filePath(QStringLiteral("soundlist.dat")); }
    QTemporaryDir m_dir;
};

TEST_F(WriteSoundListTest, WritesTheBytesIntoTheProgramFolder)
{
    const SlotFileNames names = namesWith({0, 1, 12});
    ASSERT_TRUE(WriteSoundList(m_dir.path(), names, 16));
    EXPECT_EQ(test::readFile(listPath()), soundListBytes(names, 16));
    EXPECT_EQ(crlfLines(test::readFile(listPath())).size(), 89);
}

TEST_F(WriteSoundListTest, ReadOnlyOldFileIsMadeWritableAndOverwritten)
{
    const QByteArray old =
        QByteArray("alter Inhalt, deutlich laenger als die neue Liste\r\n").repeated(40);
    ASSERT_TRUE(test::writeFile(listPath(), old));
    ASSERT_TRUE(
        QFile::setPermissions(listPath(), QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther));

    ASSERT_TRUE(WriteSoundList(m_dir.path(), SlotFileNames(), 2));
    EXPECT_TRUE(QFile::permissions(listPath()) & QFile::WriteOwner);
    EXPECT_EQ(test::readFile(listPath()), soundListBytes(SlotFileNames(), 2));
}

TEST_F(WriteSoundListTest, SecondWriteStartsFromScratch)
{
    ASSERT_TRUE(WriteSoundList(m_dir.path(), namesWith(range(0, 87)), 16));
    const qint64 longer = QFileInfo(listPath()).size();
    ASSERT_TRUE(WriteSoundList(m_dir.path(), SlotFileNames(), 2));
    EXPECT_LT(QFileInfo(listPath()).size(), longer);
    EXPECT_EQ(test::readFile(listPath()), soundListBytes(SlotFileNames(), 2));
}

TEST_F(WriteSoundListTest, MissingFolderFailsQuietly)
{
    const QString missing = m_dir.filePath(QStringLiteral("gibt-es-nicht"));
    EXPECT_FALSE(WriteSoundList(missing, SlotFileNames(), 16));
    EXPECT_FALSE(QDir(missing).exists());
}

} // namespace
} // namespace klangor
