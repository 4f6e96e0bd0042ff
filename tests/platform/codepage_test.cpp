#include "platform/codepage.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

TEST(Windows1252, EncodesGermanAndTheHighControlRangeBothWays)
{
    const std::pair<const char *, QByteArray> cases[] = {
        {"Größtmaß zählt", "Gr\xf6\xdftma\xdf z\xe4hlt"},
        {"5 € „Lok“ – ‚L‘", "5 \x80 \x84Lok\x93 \x96 \x82L\x91"},
        {"Œœ™…Ž", "\x8c\x9c\x99\x85\x8e"},
    };
    for (const auto &[utf8, cp1252] : cases) {
        EXPECT_EQ(toWindows1252(QString::fromUtf8(utf8)), cp1252);
        EXPECT_EQ(fromWindows1252(cp1252), QString::fromUtf8(utf8));
    }
    // Outside the code page: one '?' per character, a surrogate pair included.
    EXPECT_EQ(toWindows1252(QString::fromUtf8("→Ω🚂")), QByteArray("???"));
    // Every byte survives the way back, the five unassigned ones too.
    QByteArray all;
    for (int b = 0; b < 256; ++b)
        all.append(static_cast<char>(b));
    EXPECT_EQ(toWindows1252(fromWindows1252(all)), all);
}

} // namespace
} // namespace klangor
