#include "soundset/clearreadonly.h"

#include "platform/fileattributes.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace klangor {

void ClearReadOnly(const QString &path)
{
    if (path.isEmpty() || !QFileInfo::exists(path))
        return;
    clearReadOnlyAttribute(path); // a failure is ignored: callers only hope for a writable file
    if (QCoreApplication::instance())
        QCoreApplication::processEvents();
}

} // namespace klangor
