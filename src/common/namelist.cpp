#include "common/namelist.h"

namespace klangor {

QString listedNames(const QStringList &names)
{
    QString listed = names.mid(0, MaxListedNames).join(QLatin1Char('\n'));
    if (names.size() > MaxListedNames)
        listed += QStringLiteral("\nund %1 weitere").arg(names.size() - MaxListedNames);
    return listed;
}

} // namespace klangor
