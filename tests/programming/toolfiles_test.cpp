// The two files the programming tool reads: soundlist.dat and cvlist.dat.
#include "programming/cvlistfile.h"
#include "programming/soundlist.h"
#include "support/wavwriter.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

namespace klangor {
namespace {

TEST(SoundList, BytesAsTheToolReadsThem)
{
    SlotFileNames some;
    for (const int n : {0, 9, 10, 87})
        some.set(n, "lok.wav");
    some.set(5, "   "); // only whether a name is there counts
    // names, memory size, file size, start, a piece inside, end
    const std::tuple<SlotFileNames, int, int, QByteArray, QByteArray, QByteArray> cases[] = {
        {{}, 8, 792, "00: ---\r\n01: ---\r\n", "\r\n09: ---\r\n10: ---\r\n", "\r\n87: ---\r\n"},
        {some, 16, 814, "**16MBit\r\n00: 0.wav\r\n01: ---\r\n",
         "\r\n05: 5.wav\r\n06: ---\r\n07: ---\r\n08: ---\r\n09: 9.wav\r\n10: 10.wav\r\n11: ---\r\n",
         "\r\n86: ---\r\n87: 87.wav\r\n"},
    };
    for (const auto &[names, memoryMBit, size, head, middle, tail] : cases) {
        const QByteArray bytes = soundListBytes(names, memoryMBit);
        EXPECT_EQ(bytes.size(), size);
        EXPECT_TRUE(bytes.startsWith(head) && bytes.contains(middle) && bytes.endsWith(tail))
            << bytes.constData();
    }
}

TEST(CvList, WrittenAsWindows1252WithCrLfAndReadBackWithPlainLineEnds)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("cvlist.dat");
    // CR LF is not doubled, and no line end is added.
    const std::tuple<QString, QByteArray, QString> cases[] = {
        {QString::fromUtf8("; 5 €\n1=3\n"), "; 5 \x80\r\n1=3\r\n",
         QString::fromUtf8("; 5 €\n1=3\n")},
        {"1=3\r\n29=6", "1=3\r\n29=6", "1=3\n29=6"},
    };
    for (const auto &[text, bytes, loaded] : cases) {
        ASSERT_TRUE(saveCvText(path, text).ok());
        EXPECT_EQ(test::readFile(path), bytes);
        EXPECT_EQ(loadCvText(path).value(), loaded);
    }
    // The box would take seconds to lay out a long line.
    const QString longest = QString(MaxCvLineCharacters, '1');
    EXPECT_TRUE(cvListText(("2=1\r\n" + longest + "\r\n").toLatin1()));
    EXPECT_FALSE(cvListText(("2=1\r\n" + longest + "1").toLatin1()));
}

} // namespace
} // namespace klangor
