#include "platform/fileattributes.h"

#include <QFile>
#include <QFileInfo>

namespace klangor {

bool clearReadOnlyAttribute(const QString &path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists())
        return false;
    QFile file(path);
    return file.setPermissions(file.permissions() | QFile::WriteOwner | QFile::WriteUser);
}

} // namespace klangor
