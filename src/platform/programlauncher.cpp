#include "platform/programlauncher.h"

#include <QFileInfo>
#include <QProcess>

namespace klangor {

bool SystemProgramLauncher::fileExists(const QString &path)
{
    return QFileInfo(path).isFile();
}

bool SystemProgramLauncher::startDetached(const QString &program)
{
    return QProcess::startDetached(program, {});
}

} // namespace klangor
