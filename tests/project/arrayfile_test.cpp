#include "project/arrayfile.h"
#include "projecttesthelpers.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

QByteArray header(qint16 count, const QList<ArrayBounds> &bounds)
{
    QByteArray out(2 + 8 * bounds.size(), '\0');
    qToLittleEndian(count, out.data());
    for (qsizetype i = 0; i < bounds.size(); ++i) {
        qToLittleEndian(bounds[i].lower, out.data() + 2 + 4 * i);
        qToLittleEndian(bounds[i].upper, out.data() + 2 + 4 * (bounds.size() + i));
    }
    return out;
}

StringArray filled(const QList<ArrayBounds> &bounds, const QStringList &elements)
{
    StringArray array(bounds);
    for (qsizetype i = 0; i < elements.size(); ++i)
        array.setElement(i, elements[i]);
    return array;
}

TEST(ArrayFileTest, BytesOfEachLayoutAndTheWayBack)
{
    const QString longText(65535, QLatin1Char('l'));
    constexpr qint32 MinInt32 = -2147483647 - 1;
    struct Case
    {
        const char *what;
        StringArray array;
        QByteArray bytes;
    };
    const QList<Case> cases = {
        {"88 empty slot names", StringArray::oneDimensional(0, 87),
         hex("01000000000057000000") + QByteArray(176, '\0')},
        {"five to seven", filled({{5, 7}}, {"a", "", "bc"}),
         hex("0100050000000700000001006100000200") + "bc"},
        {"first index fastest", filled({{0, 1}, {0, 2}}, {"00", "10", "01", "11", "02", "12"}),
         hex("02000000000000000000010000000200000002003030020031300200303102003131020030320200"
             "3132")},
        {"negative bounds", filled({{-2, -1}, {MinInt32, MinInt32}}, {"", "x"}),
         hex("0200FEFFFFFF00000080FFFFFFFF0000008000000100") + "x"},
        {"Windows-1252 text", filled({{0, 0}}, {"Geräusch – 5 €"}),
         hex("01000000000000000000") + hex("0E00") + "Ger\xE4usch \x96 5 \x80"},
        {"65534 bytes: short count", filled({{0, 0}}, {longText.left(65534)}),
         hex("01000000000000000000FEFF") + longText.left(65534).toLatin1()},
        {"65535 bytes: long count", filled({{0, 0}}, {longText}),
         hex("01000000000000000000FFFFFFFF0000") + longText.toLatin1()},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const Result<QByteArray> bytes = arrayFileBytes(c.array);
        ASSERT_TRUE(bytes);
        EXPECT_EQ(bytes.value(), c.bytes);
        const Result<StringArray> back = parseArrayFile(c.bytes, "sound.arr");
        ASSERT_TRUE(back);
        EXPECT_EQ(back.value(), c.array);
    }
}

TEST(ArrayFileTest, ArraysTheFileCannotHoldAreRefusedBeforeTheFileIsTouched)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("sound.arr");
    ASSERT_TRUE(test::writeFile(path, "vorher"));
    const Status eleven = WriteArrayFile(path, StringArray(QList<ArrayBounds>(11, {0, 0})));
    ASSERT_FALSE(eleven);
    EXPECT_EQ(eleven.error().text, "Zu viele Dimensionen!");
    EXPECT_FALSE(WriteArrayFile(path, StringArray()));
    EXPECT_EQ(test::readFile(path), QByteArray("vorher"));
    EXPECT_TRUE(WriteArrayFile(path, StringArray(QList<ArrayBounds>(10, {0, 0}))));
}

TEST(ArrayFileTest, DamagedFilesAreRefused)
{
    const QList<ArrayBounds> eleven(11, ArrayBounds{0, 0});
    const QByteArray whole = arrayFileBytes(filled({{5, 7}}, {"a", "", "bc"})).value();
    QList<std::pair<QByteArray, QByteArray>> cases = {
        {"eleven dimensions", header(11, eleven) + QByteArray(2, '\0')},
        {"32767 dimensions, file short", header(32767, eleven)},
        {"count zero", header(0, {}) + QByteArray(10, '\0')},
        {"count negative", header(-1, {}) + QByteArray(10, '\0')},
        {"upper below lower", header(1, {{5, 4}})},
        {"billions of elements in a tiny file",
         header(1, {{-2147483647 - 1, 2147483647}}) + QByteArray(2, '\0')},
        {"many elements in a tiny file", header(2, {{0, 9999}, {0, 9999}}) + QByteArray(8, '\0')},
    };
    for (qsizetype length = 0; length < whole.size(); ++length)
        cases.append({"cut at " + QByteArray::number(length), whole.left(length)});
    for (const auto &[what, bytes] : cases) {
        const Result<StringArray> read = parseArrayFile(bytes, "sound.arr");
        ASSERT_FALSE(read) << what.constData();
        EXPECT_TRUE(read.error().text.contains("sound.arr") ||
                    read.error().text == "Zu viele Dimensionen!")
            << what.constData();
    }
}

} // namespace
} // namespace klangor
