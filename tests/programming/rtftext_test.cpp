// CV files in RTF are read as their plain text.
#include "programming/cvlistfile.h"
#include "support/printers.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

TEST(CvList, RtfShowsItsPlainTextAndHostileRtfEndsCleanly)
{
    const QByteArray deep = QByteArray(300, '{') + "\\*x" + QByteArray(300, '}');
    const std::pair<QByteArray, QString> cases[] = {
        {"{\\rtf1\\ansi{\\fonttbl{\\f0 Courier;}}{\\colortbl;\\red0;}\\f0\\fs20 1=3\\par\r\n"
         "2=4\\line 3\\tab\\'e4\\'80\\~\\{\\}\\\\\\b fett\\b0\\par}danach",
         QStringLiteral("1=3\n2=4\n3\t\u00E4\u20AC\u00A0{}\\fett\n")},
        {"{\\rtf1{\\*\\generator X;}{\\info{\\title T}}{\\pict\\bin2 {}}A}", "A"},
        {"{\\rtf1 \\u8364?\\uc2\\u-4\\'3f\\'3fB{\\uc0\\u228}\\u246 x}",
         QStringLiteral("\u20AC\uFFFCB\u00E4\u00F6")},
        {"{\\rtX 1=3\r\n}", "{\\rtX 1=3\n}"}, // not RTF: shown as it is
        {"{\\rtf1 a\\'4\\'zz\\u99999999999999 b\\bin99999999 c", QStringLiteral("a\u0004zz\uE3FF")},
        {"{\\rtf1 a\\" + QByteArray(1000, 'q') + "-123456789012345 b\\'", "ab"},
        {"{\\rtf" + deep + "y}", "y"},
    };
    for (const auto &[bytes, text] : cases)
        EXPECT_EQ(cvTextFromBytes(bytes), text) << bytes.left(60).constData();
}

} // namespace
} // namespace klangor
