#include "common/riffchunks.h"

#include <gtest/gtest.h>
#include <QBuffer>

namespace klangor {
namespace {

using namespace Qt::Literals::StringLiterals;

// id, body offset, claimed size, cut
using Walk = std::vector<std::tuple<QByteArray, qint64, quint32, bool>>;

TEST(RiffChunks, WalksTheChunksAfterTheHeaderSkippingPadBytes)
{
    const QByteArray riff = "RIFF\0\0\0\0WAVE"_ba;
    const std::pair<QByteArray, Walk> cases[] = {
        // An odd chunk is followed by its pad byte, except at the very end.
        {riff + "LIST\3\0\0\0abc\0data\3\0\0\0abc"_ba,
         {{"LIST", 20, 3, false}, {"data", 32, 3, false}}},
        // A size beyond the file ends the walk.
        {riff + "JUNK\xff\xff\xff\xff"
                "fmt \0\0\0\0"_ba,
         {{"JUNK", 20, 0xFFFFFFFFu, true}}},
        // The next chunk header does not fit.
        {riff + "fmt \4\0\0\0abcddata\4"_ba, {{"fmt ", 20, 4, false}}},
    };
    for (auto [bytes, expected] : cases) {
        QBuffer buffer(&bytes);
        ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
        RiffChunks chunks(buffer);
        Walk walk;
        while (const auto found = chunks.next())
            walk.emplace_back(found->id, found->bodyOffset, found->size, found->cut);
        EXPECT_EQ(walk, expected);
    }
}

TEST(RiffChunks, StopsAfterMaxChunks)
{
    // Empty chunks, as a sparse file reads: millions of them would take minutes.
    QByteArray bytes = "RIFF\0\0\0\0WAVE"_ba + QByteArray(8 * (RiffChunks::MaxChunks + 1), '\0');
    QBuffer buffer(&bytes);
    ASSERT_TRUE(buffer.open(QIODevice::ReadOnly));
    RiffChunks chunks(buffer);
    int walked = 0;
    for (; chunks.next(); ++walked)
        EXPECT_FALSE(chunks.tooMany());
    EXPECT_EQ(walked, RiffChunks::MaxChunks);
    EXPECT_TRUE(chunks.tooMany());
}

} // namespace
} // namespace klangor
