#include "programming/cvlistfile.h"

#include "platform/codepage.h"

#include <QFile>
#include <QSaveFile>

namespace klangor {

std::optional<QString> loadCvText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFile::NoError)
        return std::nullopt;
    QString text = fromWindows1252(bytes);
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    return text;
}

bool saveCvText(const QString &path, const QString &text)
{
    QString crlf = text;
    crlf.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    crlf.replace(QLatin1Char('\n'), QStringLiteral("\r\n"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(toWindows1252(crlf));
    return file.commit();
}

} // namespace klangor
