#include "platform/programfolder.h"

#include "platform/programfiles.h"
#include "platform/regularfile.h"
#include "platform/safefile.h"
#include "platform/systemreason.h"

#include <algorithm>
#include <cerrno>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

namespace klangor {

namespace {

// A CV default file is a few kilobytes of text.
constexpr qint64 MaxCvDefaultBytes = qint64(16) << 20;

} // namespace

bool isWritableFolder(const QString &folder)
{
    // Permission bits do not tell the whole story (read-only mounts, root): try it.
    QTemporaryFile probe(QDir(folder).filePath(QStringLiteral(".klangor-probe-XXXXXX")));
    return QFileInfo(folder).isDir() && probe.open();
}

Result<QString> resolveProgramFolder(const QString &executableFolder, const QString &userFolder,
                                     const QStringList &seedFolders)
{
    const QStringList defaults = cvDefaultFileNames();
    const bool defaultsBeside =
        std::any_of(defaults.begin(), defaults.end(), [&](const QString &name) {
            return QFileInfo(QDir(executableFolder).filePath(name)).isFile();
        });
    if (defaultsBeside && isWritableFolder(executableFolder))
        return executableFolder;
    if (!QDir().mkpath(userFolder))
        return UserMessage(
            QStringLiteral("Der Ordner „%1“ für die Arbeitsdateien kann nicht angelegt werden: "
                           "%2 Sounds, CV-Listen und Projekte lassen sich so nicht speichern.")
                .arg(userFolder, systemReason(errno)),
            QStringLiteral("Klangor"));
    const QDir target(userFolder);
    for (const QString &name : defaults) {
        if (target.exists(name))
            continue; // the user's own edits of a default file stay
        for (const QString &seed : seedFolders) {
            const QString source = QDir(seed).filePath(name);
            const Result<QByteArray> bytes = readRegularFile(source, MaxCvDefaultBytes);
            if (bytes && writeFileSafely(target.filePath(name), bytes.value()))
                break;
        }
    }
    return userFolder;
}

} // namespace klangor
