#include "platform/codepage.h"

#include <array>

namespace klangor {

namespace {

// 0x80..0x9F; 0 marks the five unassigned positions.
constexpr std::array<char16_t, 32> kHighControls = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

char encodeOne(char16_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return static_cast<char>(c);
    // The five unassigned positions decode to themselves, so they encode back the same way.
    if (c <= 0x9F && kHighControls[c - 0x80] == 0)
        return static_cast<char>(c);
    for (std::size_t i = 0; i < kHighControls.size(); ++i) {
        if (kHighControls[i] == c && c != 0)
            return static_cast<char>(0x80 + i);
    }
    return '?';
}

} // namespace

QByteArray toWindows1252(const QString &text)
{
    QByteArray out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar ch = text.at(i);
        // A surrogate pair is one character that the code page cannot hold.
        if (ch.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;
        out.append(encodeOne(ch.unicode()));
    }
    return out;
}

QString fromWindows1252(const QByteArray &bytes)
{
    QString out;
    out.reserve(bytes.size());
    for (const char b : bytes) {
        const auto u = static_cast<unsigned char>(b);
        if (u >= 0x80 && u <= 0x9F && kHighControls[u - 0x80] != 0)
            out.append(QChar(kHighControls[u - 0x80]));
        else
            out.append(QChar(u)); // unassigned positions map through, as Windows does
    }
    return out;
}

} // namespace klangor
