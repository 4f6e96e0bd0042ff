#include "project/arrayfile.h"
#include "projecttesthelpers.h"
#include "soundset/slotfilenames.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

using test::readFile;
using test::writeFile;

class ArrayFileTest : public ::testing::Test
{
protected:
    QString path(const QString &name = QStringLiteral("sound.arr")) const
    {
        return m_dir.filePath(name);
    }
    QTemporaryDir m_dir;
};

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

TEST_F(ArrayFileTest, EmptySlotFileNamesAre186BytesAndReadBackAsEightyEightEmptyEntries)
{
    StringArray names = StringArray::oneDimensional(0, SlotFileNames::UpperBound);
    ASSERT_TRUE(WriteArrayFile(path(), names));

    const QByteArray expected = hex("0100"
                                    "00000000"
                                    "57000000") +
                                QByteArray(88 * 2, '\0');
    EXPECT_EQ(readFile(path()).size(), 186);
    EXPECT_EQ(readFile(path()), expected);

    StringArray back = StringArray::oneDimensional(3, 4);
    back.set({3}, QStringLiteral("alt"));
    ASSERT_TRUE(ReadArrayFile(path(), back));
    ASSERT_EQ(back.dimensionCount(), 1);
    EXPECT_EQ(back.bounds().constFirst(), (ArrayBounds{0, 87}));
    ASSERT_EQ(back.size(), 88);
    for (const QString &element : back.elements())
        EXPECT_TRUE(element.isEmpty());
}

TEST_F(ArrayFileTest, FiveToSevenExampleIsNineteenBytes)
{
    StringArray values = StringArray::oneDimensional(5, 7);
    values.set({5}, QStringLiteral("a"));
    values.set({7}, QStringLiteral("bc"));
    ASSERT_TRUE(WriteArrayFile(path(), values));
    EXPECT_EQ(readFile(path()), hex("0100"
                                    "05000000"
                                    "07000000"
                                    "010061"
                                    "0000"
                                    "02006263"));

    // The destination's own bounds and elements do not survive a read.
    StringArray back(QList<ArrayBounds>{{0, 1}, {0, 1}});
    back.set({1, 1}, QStringLiteral("x"));
    ASSERT_TRUE(ReadArrayFile(path(), back));
    EXPECT_EQ(back, values);
}

TEST_F(ArrayFileTest, TwoDimensionsAreStoredWithTheFirstIndexFastest)
{
    StringArray values(QList<ArrayBounds>{{0, 1}, {0, 2}});
    for (qint32 j = 0; j <= 2; ++j)
        for (qint32 i = 0; i <= 1; ++i)
            values.set({i, j}, QStringLiteral("%1%2").arg(i).arg(j));
    ASSERT_TRUE(WriteArrayFile(path(), values));

    QByteArray expected = hex("0200"
                              "00000000"
                              "00000000"
                              "01000000"
                              "02000000");
    for (const char *element : {"00", "10", "01", "11", "02", "12"})
        expected += hex("0200") + QByteArray(element);
    EXPECT_EQ(readFile(path()), expected);

    StringArray back;
    ASSERT_TRUE(ReadArrayFile(path(), back));
    EXPECT_EQ(back.at({1, 2}), QStringLiteral("12"));
    EXPECT_EQ(back, values);
}

TEST_F(ArrayFileTest, NegativeAndOffsetBoundsRoundTrip)
{
    StringArray values(
        QList<ArrayBounds>{{-2, -1}, {100, 102}, {-2147483647 - 1, -2147483647 - 1}});
    values.set({-1, 101, -2147483647 - 1}, QStringLiteral("mitte"));
    ASSERT_TRUE(WriteArrayFile(path(), values));
    EXPECT_EQ(readFile(path()).left(2 + 24), hex("0300"
                                                 "FEFFFFFF"
                                                 "64000000"
                                                 "00000080"
                                                 "FFFFFFFF"
                                                 "66000000"
                                                 "00000080"));
    StringArray back;
    ASSERT_TRUE(ReadArrayFile(path(), back));
    EXPECT_EQ(back, values);
    EXPECT_EQ(*back.storageIndex({-1, 101, -2147483647 - 1}), 3);
}

// Ten dimensions pass both ways; eleven are refused by the writer before the file is touched.
TEST_F(ArrayFileTest, DimensionLimitOnWriting)
{
    struct Case
    {
        int dimensions;
        bool accepted;
    };
    for (const Case &c : {Case{1, true}, Case{10, true}, Case{11, false}, Case{12, false}}) {
        SCOPED_TRACE(c.dimensions);
        QList<ArrayBounds> bounds(c.dimensions, ArrayBounds{0, 1});
        StringArray values(bounds);
        values.setElement(values.size() - 1, QStringLiteral("letztes"));
        ASSERT_EQ(CountDimensions(values), c.dimensions);

        const QByteArray before = "vorher, länger als nichts";
        ASSERT_TRUE(writeFile(path(), before));
        const Status written = WriteArrayFile(path(), values);
        EXPECT_EQ(written.ok(), c.accepted);
        if (c.accepted) {
            StringArray back;
            ASSERT_TRUE(ReadArrayFile(path(), back));
            EXPECT_EQ(back, values);
        } else {
            EXPECT_EQ(written.error().text, QStringLiteral("Zu viele Dimensionen!"));
            EXPECT_EQ(readFile(path()), before);
            const QString absent = path(QStringLiteral("neu.arr"));
            EXPECT_FALSE(WriteArrayFile(absent, values));
            EXPECT_FALSE(QFile::exists(absent));
        }
    }
}

QByteArray header(qint16 count, const QList<ArrayBounds> &bounds)
{
    QByteArray out;
    char b[4];
    qToLittleEndian(count, b);
    out.append(b, 2);
    for (const ArrayBounds &x : bounds) {
        qToLittleEndian(x.lower, b);
        out.append(b, 4);
    }
    for (const ArrayBounds &x : bounds) {
        qToLittleEndian(x.upper, b);
        out.append(b, 4);
    }
    return out;
}

TEST_F(ArrayFileTest, ReaderRefusesBadCountsAndKeepsTheDestination)
{
    const QList<ArrayBounds> ten(10, ArrayBounds{0, 0});
    const QList<ArrayBounds> eleven(11, ArrayBounds{0, 0});
    struct Case
    {
        const char *what;
        QByteArray bytes;
        qint32 number;
    };
    const QList<Case> cases = {
        {"eleven with all bounds", header(11, eleven) + QByteArray(2, '\0'), -2147221404},
        {"eleven, bounds cut short", header(11, eleven).left(2 + 4 * 15), 62},
        {"32767 dimensions, file short", header(32767, eleven), 62},
        {"count zero", header(0, {}) + QByteArray(10, '\0'), 9},
        {"count negative", header(-1, {}) + QByteArray(10, '\0'), 9},
        {"empty file", QByteArray(), 9},
        {"one byte", QByteArray(1, '\1'), 62},
        {"upper below lower", header(1, {{5, 4}}), 9},
        {"billions of elements in a tiny file", header(1, {{-2147483647 - 1, 2147483647}}) + "\0\0",
         9},
        {"many elements in a tiny file", header(2, {{0, 9999}, {0, 9999}}) + QByteArray(8, '\0'),
         62},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(writeFile(path(), c.bytes));
        StringArray values = StringArray::oneDimensional(1, 2);
        values.set({2}, QStringLiteral("bleibt"));
        const StringArray before = values;
        const Status read = ReadArrayFile(path(), values);
        ASSERT_FALSE(read.ok());
        EXPECT_FALSE(read.error().text.isEmpty());
        EXPECT_EQ(values, before);
    }

    // Ten dimensions are read.
    ASSERT_TRUE(writeFile(path(), header(10, ten) + hex("0300") + "abc"));
    StringArray values;
    ASSERT_TRUE(ReadArrayFile(path(), values));
    EXPECT_EQ(values.dimensionCount(), 10);
    EXPECT_EQ(values.elements(), QStringList{QStringLiteral("abc")});
}

TEST_F(ArrayFileTest, EveryTruncationIsReportedAndChangesNothing)
{
    StringArray values = StringArray::oneDimensional(5, 7);
    values.set({5}, QStringLiteral("a"));
    values.set({7}, QStringLiteral("bc"));
    ASSERT_TRUE(WriteArrayFile(path(), values));
    const QByteArray whole = readFile(path());
    for (qsizetype length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        ASSERT_TRUE(writeFile(path(), whole.left(length)));
        StringArray target = StringArray::oneDimensional(0, 0);
        target.set({0}, QStringLiteral("unverändert"));
        const Status read = ReadArrayFile(path(), target);
        ASSERT_FALSE(read.ok());
        EXPECT_EQ(target.at({0}), QStringLiteral("unverändert"));
    }
}

TEST_F(ArrayFileTest, LongStringsSwitchToTheLongFormAtSixtyFiveThousandFiveHundredThirtyFive)
{
    struct Case
    {
        qsizetype length;
        QByteArray countBytes;
    };
    const QList<Case> cases = {
        {65534, hex("FEFF")},
        {65535, hex("FFFF"
                    "FFFF0000")},
        {65536, hex("FFFF"
                    "00000100")},
        {70000, hex("FFFF"
                    "70110100")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.length);
        QByteArray text = test::noise(c.length, static_cast<quint32>(c.length));
        for (char &ch : text)
            ch = static_cast<char>('a' + (static_cast<unsigned char>(ch) % 26));
        StringArray values = StringArray::oneDimensional(0, 1);
        values.set({0}, QString::fromLatin1(text));
        values.set({1}, QStringLiteral("z"));
        ASSERT_TRUE(WriteArrayFile(path(), values));

        const QByteArray file = readFile(path());
        EXPECT_EQ(file.mid(10, c.countBytes.size()), c.countBytes);
        EXPECT_EQ(file.mid(10 + c.countBytes.size(), c.length), text);
        EXPECT_EQ(file.mid(10 + c.countBytes.size() + c.length), hex("0100") + "z");

        StringArray back;
        ASSERT_TRUE(ReadArrayFile(path(), back));
        EXPECT_EQ(back, values);
    }
}

TEST_F(ArrayFileTest, WritingOverALongerFileLeavesOnlyTheNewBytes)
{
    ASSERT_TRUE(writeFile(path(), QByteArray(5000, 'x')));
    StringArray values = StringArray::oneDimensional(0, 0);
    values.set({0}, QStringLiteral("kurz"));
    ASSERT_TRUE(WriteArrayFile(path(), values));
    EXPECT_EQ(readFile(path()), hex("0100"
                                    "00000000"
                                    "00000000"
                                    "0400") +
                                    "kurz");
}

TEST_F(ArrayFileTest, TextIsStoredInWindows1252)
{
    const QString text = QStringLiteral("Bremsgeräusch Ölpumpe Straße – 5 €");
    StringArray values = StringArray::oneDimensional(0, 0);
    values.set({0}, text);
    ASSERT_TRUE(WriteArrayFile(path(), values));

    const QByteArray expected = QByteArray("Bremsger\xE4usch \xD6lpumpe Stra\xDF"
                                           "e \x96 5 \x80");
    EXPECT_EQ(readFile(path()).mid(10), test::counted(expected));
    StringArray back;
    ASSERT_TRUE(ReadArrayFile(path(), back));
    EXPECT_EQ(back.at({0}), text);
}

TEST_F(ArrayFileTest, ArraysWithoutStorageAndMissingFilesAreReported)
{
    const StringArray none;
    EXPECT_EQ(CountDimensions(none), 0);
    const Status written = WriteArrayFile(path(), none);
    ASSERT_FALSE(written.ok());
    EXPECT_FALSE(QFile::exists(path()));

    EXPECT_EQ(CountDimensions(StringArray(QList<ArrayBounds>{{3, 2}})), 0);

    StringArray values;
    const Status read = ReadArrayFile(path(QStringLiteral("fehlt.arr")), values);
    ASSERT_FALSE(read.ok());
    EXPECT_TRUE(read.error().text.contains(QStringLiteral("fehlt.arr")));

    const Status unwritable =
        WriteArrayFile(path(QStringLiteral("kein/ordner.arr")), StringArray::oneDimensional(0, 0));
    ASSERT_FALSE(unwritable.ok());
}

TEST_F(ArrayFileTest, ParsingFromMemoryMatchesTheFile)
{
    StringArray values = StringArray::oneDimensional(0, 87);
    values.set({12}, QStringLiteral("pfiff.wav"));
    const Result<QByteArray> bytes = arrayFileBytes(values);
    ASSERT_TRUE(bytes);
    ASSERT_TRUE(WriteArrayFile(path(), values));
    EXPECT_EQ(bytes.value(), readFile(path()));
    const Result<StringArray> parsed = parseArrayFile(bytes.value(), QStringLiteral("sound.arr"));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed.value(), values);
}

} // namespace
} // namespace klangor
