#include "common/riffchunks.h"

#include <gtest/gtest.h>
#include <QBuffer>
#include <QtEndian>

namespace klangor {
namespace {

QByteArray chunk(const char *id, quint32 size, QByteArray body)
{
    char sizeBytes[4];
    qToLittleEndian(size, sizeBytes);
    return QByteArray(id, 4) + QByteArray(sizeBytes, 4) + body;
}

// id, body offset, claimed size, cut
using Walk = std::vector<std::tuple<QByteArray, qint64, quint32, bool>>;

TEST(RiffChunks, WalksTheChunksAfterTheHeaderSkippingPadBytes)
{
    const QByteArray riff("RIFF\0\0\0\0WAVE", 12);
    const QByteArray fmt = chunk("fmt ", 16, QByteArray(16, 'f'));
    const struct
    {
        const char *name;
        QByteArray bytes;
        Walk walk;
    } cases[] = {
        {"format and data",
         riff + fmt + chunk("data", 4, "abcd"),
         {{"fmt ", 20, 16, false}, {"data", 44, 4, false}}},
        {"odd chunk is followed by its pad byte",
         riff + chunk("LIST", 3, QByteArray("abc\0", 4)) + chunk("data", 2, "ab"),
         {{"LIST", 20, 3, false}, {"data", 32, 2, false}}},
        {"odd chunk at the end without its pad byte",
         riff + chunk("data", 3, "abc"),
         {{"data", 20, 3, false}}},
        {"file ends inside the body", riff + chunk("data", 100, "abcd"), {{"data", 20, 100, true}}},
        {"size beyond the file ends the walk",
         riff + chunk("JUNK", 0xFFFFFFFFu, "x") + fmt,
         {{"JUNK", 20, 0xFFFFFFFFu, true}}},
        {"chunk header cut short",
         riff + fmt + QByteArray("data\x04", 5),
         {{"fmt ", 20, 16, false}}},
        {"header only", riff, {}},
        {"empty", QByteArray(), {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray bytes = c.bytes;
        QBuffer buffer(&bytes);
        ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
        RiffChunks chunks(buffer);
        Walk walk;
        while (const auto found = chunks.next())
            walk.emplace_back(found->id, found->bodyOffset, found->size, found->cut);
        EXPECT_EQ(walk, c.walk);
    }
}

} // namespace
} // namespace klangor
