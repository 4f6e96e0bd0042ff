#include "programming/rtftext.h"

#include "platform/codepage.h"

#include <algorithm>
#include <iterator>
#include <QByteArrayView>
#include <QList>

namespace klangor {

namespace {

// Real documents nest a few levels; deeper groups share the state of the deepest kept one.
constexpr qsizetype kMaxKeptDepth = 256;
constexpr qsizetype kMaxWordLength = 32;
constexpr qsizetype kMaxParameterDigits = 10;

struct GroupState
{
    bool skip = false;
    int fallbackLength = 1; // \ucN: characters after \uN that readers without Unicode show
};

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

int hexValue(char c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Destinations whose text is not part of the document's text.
bool isSkippedDestination(QByteArrayView word)
{
    static constexpr QByteArrayView kSkipped[] = {
        "fonttbl",      "colortbl",  "stylesheet", "info",     "pict",      "object",
        "fldinst",      "header",    "headerl",    "headerr",  "headerf",   "footer",
        "footerl",      "footerr",   "footerf",    "footnote", "listtable", "listoverridetable",
        "rsidtbl",      "filetbl",   "revtbl",     "xmlnstbl", "themedata", "colorschememapping",
        "latentstyles", "datastore", "generator",  "pgdsctbl"};
    return std::ranges::find(kSkipped, word) != std::end(kSkipped);
}

// The character a control word stands for, or 0.
char16_t wordCharacter(QByteArrayView word)
{
    struct Entry
    {
        QByteArrayView word;
        char16_t character;
    };
    static constexpr Entry kCharacters[] = {
        {"par", u'\n'},          {"line", u'\n'},       {"sect", u'\n'},
        {"page", u'\n'},         {"row", u'\n'},        {"tab", u'\t'},
        {"cell", u'\t'},         {"emdash", u'\u2014'}, {"endash", u'\u2013'},
        {"lquote", u'\u2018'},   {"rquote", u'\u2019'}, {"ldblquote", u'\u201C'},
        {"rdblquote", u'\u201D'}};
    for (const Entry &e : kCharacters) {
        if (e.word == word)
            return e.character;
    }
    return 0;
}

class RtfReader
{
public:
    explicit RtfReader(const QByteArray &rtf) : m_in(rtf) {}

    QString read()
    {
        while (m_pos < m_in.size()) {
            const char c = m_in.at(m_pos++);
            if (c == '{') {
                openGroup();
            } else if (c == '}') {
                if (closeGroup())
                    break; // the document ends with its outermost group
            } else if (c == '\\') {
                control();
            } else if (c != '\r' && c != '\n') {
                appendByte(c);
            }
        }
        flushBytes();
        return m_out;
    }

private:
    void openGroup()
    {
        m_fallbackLeft = 0;
        if (m_outer.size() < kMaxKeptDepth)
            m_outer.append(m_state);
        else
            ++m_unkeptDepth;
    }

    // True when the outermost group ends.
    bool closeGroup()
    {
        m_fallbackLeft = 0;
        if (m_unkeptDepth > 0) {
            --m_unkeptDepth;
            return false;
        }
        if (m_outer.isEmpty())
            return false; // a stray brace
        m_state = m_outer.takeLast();
        return m_outer.isEmpty();
    }

    void control()
    {
        if (m_pos >= m_in.size())
            return;
        const char c = m_in.at(m_pos);
        if (isLetter(c)) {
            controlWord();
            return;
        }
        ++m_pos;
        if (c == '\'') {
            hexByte();
        } else if (c == '*') {
            m_state.skip = true; // a destination this reader need not know
        } else if (c == '\\' || c == '{' || c == '}') {
            appendByte(c);
        } else if (c == '~') {
            appendCharacter(u'\u00A0');
        } else if (c == '_') {
            appendByte('-');
        } else if (c == '\r' || c == '\n') {
            appendCharacter(u'\n'); // an escaped line end is a paragraph end
        } else {
            consumeFallback(); // other symbols, such as the optional hyphen, show nothing
        }
    }

    void controlWord()
    {
        const qsizetype start = m_pos;
        while (m_pos < m_in.size() && isLetter(m_in.at(m_pos)))
            ++m_pos;
        const QByteArrayView word =
            QByteArrayView(m_in).sliced(start, std::min(m_pos - start, kMaxWordLength));
        bool negative = false, hasParameter = false;
        if (m_pos + 1 < m_in.size() && m_in.at(m_pos) == '-' && isDigit(m_in.at(m_pos + 1))) {
            negative = true;
            ++m_pos;
        }
        qint64 parameter = 0;
        for (qsizetype digits = 0; m_pos < m_in.size() && isDigit(m_in.at(m_pos)); ++m_pos) {
            hasParameter = true;
            if (digits++ < kMaxParameterDigits)
                parameter = parameter * 10 + (m_in.at(m_pos) - '0');
        }
        if (negative)
            parameter = -parameter;
        if (m_pos < m_in.size() && m_in.at(m_pos) == ' ')
            ++m_pos; // the delimiter belongs to the word
        applyWord(word, hasParameter, parameter);
    }

    void applyWord(QByteArrayView word, bool hasParameter, qint64 parameter)
    {
        if (word == "bin") {
            // Binary data follows unquoted; none of it is text.
            if (hasParameter && parameter > 0)
                m_pos += std::min<qint64>(parameter, m_in.size() - m_pos);
        } else if (word == "u" && hasParameter) {
            // \uN is a signed 16-bit number; the fallback that follows is for older readers.
            appendCharacter(static_cast<char16_t>(parameter & 0xFFFF));
            m_fallbackLeft = m_state.fallbackLength;
        } else if (word == "uc" && hasParameter) {
            m_state.fallbackLength = static_cast<int>(std::clamp<qint64>(parameter, 0, 16));
        } else if (isSkippedDestination(word)) {
            m_state.skip = true;
        } else if (const char16_t c = wordCharacter(word)) {
            appendCharacter(c);
        } else {
            consumeFallback();
        }
    }

    void hexByte()
    {
        int value = 0, digits = 0;
        for (; digits < 2 && m_pos < m_in.size() && hexValue(m_in.at(m_pos)) >= 0; ++digits)
            value = value * 16 + hexValue(m_in.at(m_pos++));
        if (digits > 0)
            appendByte(static_cast<char>(value));
    }

    bool consumeFallback()
    {
        if (m_fallbackLeft == 0)
            return false;
        --m_fallbackLeft;
        return true;
    }

    void appendByte(char byte)
    {
        if (consumeFallback() || m_state.skip)
            return;
        m_bytes.append(byte);
    }

    void appendCharacter(char16_t character)
    {
        if (consumeFallback() || m_state.skip)
            return;
        flushBytes();
        m_out.append(QChar(character));
    }

    void flushBytes()
    {
        m_out.append(fromWindows1252(m_bytes));
        m_bytes.clear();
    }

    const QByteArray &m_in;
    qsizetype m_pos = 0;
    GroupState m_state;
    QList<GroupState> m_outer; // the states of the enclosing groups
    qsizetype m_unkeptDepth = 0;
    int m_fallbackLeft = 0;
    QByteArray m_bytes; // text bytes not yet decoded
    QString m_out;
};

} // namespace

bool isRtf(const QByteArray &bytes)
{
    return bytes.startsWith("{\\rtf");
}

QString plainTextFromRtf(const QByteArray &rtf)
{
    return RtfReader(rtf).read();
}

} // namespace klangor
