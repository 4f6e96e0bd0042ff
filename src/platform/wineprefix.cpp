#include "platform/wineprefix.h"

#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "platform/systemreason.h"

#include <cerrno>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <unistd.h>

namespace klangor {

namespace {

constexpr int Ports = 4;
constexpr qint64 MaxRegistryBytes = 256 * 1024 * 1024;

UserMessage prefixError(const QString &prefix, const QString &reason)
{
    return UserMessage(QStringLiteral("Der Wine-Ordner „%1“ kann nicht eingerichtet werden: %2")
                           .arg(prefix, reason));
}

QString portLink(const QDir &prefix, int port)
{
    return prefix.filePath(QStringLiteral("ports/com%1").arg(port));
}

// A string as wine's registry files quote it.
QByteArray registryString(const QString &text)
{
    QByteArray quoted = text.toUtf8();
    quoted.replace('\\', "\\\\").replace('"', "\\\"");
    return '"' + quoted + '"';
}

QByteArray portValue(const QDir &prefix, int port)
{
    return registryString(QStringLiteral("COM%1").arg(port)) + '=' +
           registryString(portLink(prefix, port));
}

// Replaces link by one to target in a single rename, so wine never sees it missing.
Status setLink(const QString &link, const QString &target)
{
    if (QFileInfo(link).symLinkTarget() == target)
        return {};
    const QString temporary = link + QStringLiteral(".new");
    const QByteArray temporaryName = QFile::encodeName(temporary);
    unlink(temporaryName.constData());
    if (symlink(QFile::encodeName(target).constData(), temporaryName.constData()) != 0 ||
        rename(temporaryName.constData(), QFile::encodeName(link).constData()) != 0) {
        const int error = errno;
        unlink(temporaryName.constData());
        return UserMessage(systemReason(error));
    }
    return {};
}

// The ports' registry values: written into a new prefix before wine first reads it, added to
// an older one. wine reads them when it next starts; until then the links set below serve.
Status registerPorts(const QDir &prefix)
{
    const QString path = prefix.filePath(QStringLiteral("system.reg"));
    QByteArray registry;
    if (QFileInfo::exists(path)) {
        Result<QByteArray> read = readRegularFile(path, MaxRegistryBytes);
        if (!read)
            return read.error();
        registry = std::move(read).value();
    } else {
        // wine takes a prefix without its architecture for a 32-bit one, which a 64-bit wine
        // refuses to run in.
        const bool wine64 = !QStandardPaths::findExecutable(QStringLiteral("wine64")).isEmpty() ||
                            QFileInfo::exists(QStringLiteral("/usr/lib/wine/wine64"));
        registry = "WINE REGISTRY Version 2\n;; All keys relative to \\\\Machine\n\n#arch=" +
                   QByteArray(wine64 ? "win64" : "win32") + '\n';
    }
    bool complete = true;
    for (int port = 1; port <= Ports; ++port)
        complete = complete && registry.contains('\n' + portValue(prefix, port) + '\n');
    if (complete)
        return {};
    if (!registry.endsWith('\n'))
        registry += '\n';
    registry += "\n[Software\\\\Wine\\\\Ports] " +
                QByteArray::number(QDateTime::currentSecsSinceEpoch()) + '\n';
    for (int port = 1; port <= Ports; ++port)
        registry += portValue(prefix, port) + '\n';
    return writeFileSafely(path, registry);
}

} // namespace

Status prepareWinePort(const QString &prefixPath, int port, const QString &devicePath)
{
    const QDir prefix(prefixPath);
    for (const char *folder : {"dosdevices", "drive_c", "ports"}) {
        if (!QDir().mkpath(prefix.filePath(QString::fromLatin1(folder))))
            return prefixError(
                prefixPath, QStringLiteral("Ordner „%1“ fehlt").arg(QString::fromLatin1(folder)));
    }
    // wine makes c: and z: only together with dosdevices, which is made here now.
    const QString drives[][2] = {{QStringLiteral("dosdevices/c:"), QStringLiteral("../drive_c")},
                                 {QStringLiteral("dosdevices/z:"), QStringLiteral("/")}};
    for (const auto &[drive, target] : drives) {
        const QString link = prefix.filePath(drive);
        if (QFileInfo(link).isSymLink() || QFileInfo::exists(link))
            continue;
        if (const Status made = setLink(link, target); !made)
            return prefixError(prefixPath, made.error().text);
    }
    if (const Status registered = registerPorts(prefix); !registered)
        return prefixError(prefixPath, registered.error().text);
    const QString through = portLink(prefix, port);
    if (const Status linked = setLink(through, devicePath); !linked)
        return prefixError(prefixPath, linked.error().text);
    const QString dosDevice = prefix.filePath(QStringLiteral("dosdevices/com%1").arg(port));
    if (const Status linked = setLink(dosDevice, through); !linked)
        return prefixError(prefixPath, linked.error().text);
    return {};
}

} // namespace klangor
