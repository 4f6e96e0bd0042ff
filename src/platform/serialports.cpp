#include "platform/serialports.h"

#include "platform/systemreason.h"

#include <algorithm>
#include <cerrno>
#include <grp.h>
#include <QDir>
#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace klangor {

namespace {

bool inGroup(gid_t group)
{
    if (getegid() == group)
        return true;
    const int count = getgroups(0, nullptr);
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
    const int got = getgroups(count, groups.data());
    return std::find(groups.begin(), groups.begin() + std::max(got, 0), group) !=
           groups.begin() + std::max(got, 0);
}

} // namespace

QList<SerialDevice> listSerialDevices(const QString &deviceRoot)
{
    QList<SerialDevice> devices;
    const QDir byId(QDir(deviceRoot).filePath(QStringLiteral("serial/by-id")));
    for (const QFileInfo &link :
         byId.entryInfoList(QDir::System | QDir::Files | QDir::NoDotAndDotDot, QDir::Name)) {
        // A dangling link is an adapter being unplugged; only a character device is one at
        // all, never a file or a pipe put there, which the tool would then "program".
        const QString target = link.canonicalFilePath();
        struct stat info
        {};
        if (!target.isEmpty() && stat(QFile::encodeName(target).constData(), &info) == 0 &&
            S_ISCHR(info.st_mode))
            devices.append({link.fileName(), link.absoluteFilePath(), target});
    }
    return devices;
}

Result<SerialDevice> deviceForPort(const QList<SerialDevice> &present, int port,
                                   const QString &chosenName)
{
    const QString com = QStringLiteral("Com%1").arg(port);
    if (!chosenName.isEmpty()) {
        for (const SerialDevice &device : present) {
            if (device.name == chosenName)
                return device;
        }
        return UserMessage(
            QStringLiteral("Der für %1 gewählte Adapter „%2“ ist nicht angeschlossen. "
                           "Stecken Sie ihn ein oder wählen Sie mit einem Rechtsklick auf "
                           "„%1“ einen anderen.")
                .arg(com, chosenName));
    }
    if (present.size() == 1)
        return present.first();
    if (present.isEmpty())
        return UserMessage(QStringLiteral("Kein USB-Seriell-Adapter gefunden. Schließen Sie das "
                                          "Programmiergerät an und versuchen Sie es noch einmal."));
    return UserMessage(
        QStringLiteral("Es sind %1 USB-Seriell-Adapter angeschlossen. Wählen Sie mit einem "
                       "Rechtsklick auf „%2“, welcher das Programmiergerät ist.")
            .arg(present.size())
            .arg(com));
}

Status checkDeviceAccess(const SerialDevice &device)
{
    const QByteArray path = QFile::encodeName(device.target);
    if (access(path.constData(), R_OK | W_OK) == 0)
        return {};
    const int error = errno;
    if (error == ENOENT)
        return UserMessage(
            QStringLiteral("Der Adapter „%1“ ist nicht mehr angeschlossen.").arg(device.name));
    struct stat info
    {};
    if (stat(path.constData(), &info) == 0 && (info.st_mode & S_IRWXG) == (S_IRGRP | S_IWGRP) &&
        !inGroup(info.st_gid)) {
        const group *owner = getgrgid(info.st_gid);
        const QString name =
            owner ? QString::fromLocal8Bit(owner->gr_name) : QString::number(info.st_gid);
        return UserMessage(
            QStringLiteral("Sie dürfen „%1“ nicht öffnen. Sie sind nicht in der Gruppe %2: "
                           "`sudo adduser $USER %2`, dann neu anmelden.")
                .arg(device.target, name));
    }
    return UserMessage(QStringLiteral("Sie dürfen „%1“ nicht zum Lesen und Schreiben öffnen. %2")
                           .arg(device.target, systemReason(error)));
}

} // namespace klangor
