#include "platform/codepage.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

// The last pair holds an unassigned position, which maps through both ways.
TEST(Windows1252, EncodesGermanAndTheHighControlRangeBothWays)
{
    const std::pair<const char *, QByteArray> cases[] = {
        {"Größtmaß 5 € „Lok“ – ‚L‘", "Gr\xf6\xdftma\xdf 5 \x80 \x84Lok\x93 \x96 \x82L\x91"},
        {"Œœ™…Ž\u0081", "\x8c\x9c\x99\x85\x8e\x81"},
    };
    for (const auto &[utf8, cp1252] : cases) {
        EXPECT_EQ(toWindows1252(QString::fromUtf8(utf8)), cp1252);
        EXPECT_EQ(fromWindows1252(cp1252), QString::fromUtf8(utf8));
    }
    // Outside the code page: one '?' per character, a surrogate pair included.
    EXPECT_EQ(toWindows1252(QString::fromUtf8("→Ω🚂")), QByteArray("???"));
}

} // namespace
} // namespace klangor
