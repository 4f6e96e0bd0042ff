#include "platform/systeminfo.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

namespace klangor {

bool SystemProgramLauncher::startInstalled(const QString &name)
{
    const QString path = QStandardPaths::findExecutable(name);
    return !path.isEmpty() && QProcess::startDetached(path, {});
}

bool startSystemInfo(ProgramLauncher &launcher)
{
    // Programs that describe the machine come first; the desktops' system monitors, which
    // show at least its load and memory, are the fallback.
    const QStringList programs = {
        QStringLiteral("hardinfo2"),
        QStringLiteral("hardinfo"),
        QStringLiteral("kinfocenter"),
        QStringLiteral("gnome-system-monitor"),
        QStringLiteral("plasma-systemmonitor"),
        QStringLiteral("mate-system-monitor"),
        QStringLiteral("xfce4-taskmanager"),
        QStringLiteral("lxtask"),
    };
    for (const QString &program : programs) {
        if (launcher.startInstalled(program))
            return true;
    }
    return false;
}

} // namespace klangor
