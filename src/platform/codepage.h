#pragma once

#include <QByteArray>
#include <QString>

namespace klangor {

// Every text the Windows tools and the Windows build read back is Windows-1252.
// Characters outside the code page become '?', as the Windows conversion does.
QByteArray toWindows1252(const QString &text);
QString fromWindows1252(const QByteArray &bytes);

} // namespace klangor
