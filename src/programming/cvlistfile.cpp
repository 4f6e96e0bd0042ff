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

Result<QString> loadCvText(const QString &path)
{
    const Result<QByteArray> bytes = readRegularFile(path, MaxCvFileBytes);
    if (!bytes)
        return bytes.error();
    return cvTextFromBytes(bytes.value());
}

Status saveCvText(const QString &path, const QString &text)
{
    QString crlf = text;
    crlf.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    crlf.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
    return writeFileSafely(path, toWindows1252(crlf));
}

} // namespace klangor
