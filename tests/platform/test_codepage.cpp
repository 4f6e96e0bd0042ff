#include "platform/codepage.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

TEST(Windows1252, EncodesGermanAndTheHighControlRange)
{
    struct Case
    {
        const char *utf8;
        QByteArray cp1252;
    };
    const Case cases[] = {
        {"Geräusch", QByteArray("Ger\xe4usch")},
        {"Übergang größer", QByteArray("\xdc"
                                       "bergang gr\xf6\xdf"
                                       "er")},
        {"5 €", QByteArray("5 \x80")},
        {"„Lok“ – ‚1‘", QByteArray("\x84Lok\x93 \x96 \x82"
                                   "1\x91")},
        {"Œœ™…", QByteArray("\x8c\x9c\x99\x85")},
        {"plain ASCII", QByteArray("plain ASCII")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.utf8);
        EXPECT_EQ(toWindows1252(QString::fromUtf8(c.utf8)), c.cp1252);
        EXPECT_EQ(fromWindows1252(c.cp1252), QString::fromUtf8(c.utf8));
    }
}

TEST(Windows1252, UnrepresentableCharactersBecomeOneQuestionMark)
{
    EXPECT_EQ(toWindows1252(QString::fromUtf8("Ž→Ω🚂")), QByteArray("\x8e???"));
}

TEST(Windows1252, EveryByteSurvivesARoundTrip)
{
    QByteArray all;
    for (int b = 0; b < 256; ++b)
        all.append(static_cast<char>(b));
    EXPECT_EQ(toWindows1252(fromWindows1252(all)), all);
}

} // namespace
} // namespace klangor
