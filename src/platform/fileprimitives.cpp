#include "platform/fileprimitives.h"

#include "platform/systemreason.h"

#include <fcntl.h>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <sys/stat.h>

namespace klangor::files {

QByteArray nativePath(const QString &path)
{
    return QFile::encodeName(path);
}

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

QString randomSuffix()
{
    return QString::number(QRandomGenerator::global()->generate64(), 36);
}

UserMessage cannotWrite(const QString &path, int error)
{
    return {QStringLiteral("Die Datei „%1“ kann nicht geschrieben werden: %2")
                .arg(shown(path), systemReason(error))};
}

bool writeAll(int fd, const QByteArray &data)
{
    const char *p = data.constData();
    qsizetype left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

void syncFolder(const QString &folder)
{
    Descriptor dir(::open(nativePath(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.valid())
        ::fsync(dir.get()); // not every file system can
}

bool isDirectory(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isDevice(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 &&
           (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode));
}

} // namespace klangor::files
