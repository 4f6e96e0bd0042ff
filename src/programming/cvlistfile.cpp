#include "programming/cvlistfile.h"

#include "platform/codepage.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "programming/rtftext.h"

namespace klangor {

QString cvTextFromBytes(const QByteArray &bytes)
{
    if (isRtf(bytes))
        return plainTextFromRtf(bytes);
    QString text = fromWindows1252(bytes);
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    return text;
}

Result<QString> cvListText(const QByteArray &bytes)
{
    QString text = cvTextFromBytes(bytes);
    qsizetype lineStart = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text.at(i) != QLatin1Char('\n'))
            continue;
        if (i - lineStart > MaxCvLineCharacters)
            return UserMessage{QStringLiteral("Die CV-Liste hat eine Zeile von mehr als %1 "
                                              "Zeichen und wird nicht geladen.")
                                   .arg(MaxCvLineCharacters)};
        lineStart = i + 1;
    }
    return text;
}

Result<QString> loadCvText(const QString &path)
{
    const Result<QByteArray> bytes = readRegularFile(path, MaxCvFileBytes);
    if (!bytes)
        return bytes.error();
    return cvListText(bytes.value());
}

Status saveCvText(const QString &path, const QString &text)
{
    QString crlf = text;
    crlf.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    crlf.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
    return writeFileSafely(path, toWindows1252(crlf));
}

} // namespace klangor
