#include "platform/safefile.h"

#include "platform/filebatch.h"
#include "platform/fileprimitives.h"

#include <fcntl.h>
#include <optional>
#include <QDir>
#include <QFileInfo>
#include <sys/file.h>
#include <sys/stat.h>

namespace klangor {

using namespace files;

namespace {

const QString kTempPrefix = SafeFilePrefix + QStringLiteral("tmp-");

// A new file in folder under a name of its own, created from the start under a unique
// temporary name, or anonymous (no name until linked) where the file system allows it,
// so that a kill in the middle of writing leaves nothing behind (a named one goes at the next
// write into the folder).
struct TempFile
{
    int fd = -1;
    QString name; // empty while anonymous
};

TempFile createTemp(const QString &folder, bool mayBeAnonymous)
{
    const int anonymous = mayBeAnonymous ? ::open(nativePath(folder).constData(),
                                                  O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666)
                                         : -1;
    if (anonymous >= 0 ||
        (mayBeAnonymous && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return {anonymous, {}};
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString name = QDir(folder).filePath(kTempPrefix + randomSuffix());
        const int fd = ::open(nativePath(name).constData(),
                              O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd >= 0 || errno != EEXIST)
            return {fd, name};
    }
    return {-1, {}};
}

// Gives an anonymous file a temporary name, so that it can be renamed over the target.
bool nameTemp(TempFile &temp, const QString &folder)
{
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(temp.fd);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString name = QDir(folder).filePath(kTempPrefix + randomSuffix());
        if (::linkat(AT_FDCWD, self.constData(), AT_FDCWD, nativePath(name).constData(),
                     AT_SYMLINK_FOLLOW) == 0) {
            temp.name = name;
            return true;
        }
        if (errno != EEXIST)
            return false;
    }
    return false;
}

// 0 or the errno of the step that failed.
int replaceFile(const QString &path, const QByteArray &data, bool mayBeAnonymous = true)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (isDirectory(path))
        return EISDIR;
    if (isDevice(path))
        return ENODEV;
    recoverInterruptedWrites(folder); // what a killed save left there
    std::optional<MakingTemporary> making(std::in_place, folder);
    TempFile temp = createTemp(folder, mayBeAnonymous);
    Descriptor file(temp.fd);
    if (!file.valid())
        return errno;
    ::flock(file.get(), LOCK_EX | LOCK_NB); // tells another writer's recovery it is not left over
    making.reset();

    bool written = writeAll(file.get(), data) && ::fsync(file.get()) == 0;
    // Naming an anonymous file takes a link through /proc; where that is refused (no /proc,
    // a file system without links), the file is written again under a name of its own.
    if (written && temp.name.isEmpty() && !nameTemp(temp, folder)) {
        if (errno != ENOSPC && errno != EDQUOT)
            return replaceFile(path, data, false);
        written = false;
    }
    written = written && file.close();
    if (written && ::rename(nativePath(temp.name).constData(), nativePath(path).constData()) == 0) {
        syncFolder(folder);
        return 0;
    }
    const int error = errno;
    if (!temp.name.isEmpty())
        ::unlink(nativePath(temp.name).constData());
    return error;
}

} // namespace

void ClearReadOnly(const QString &path)
{
    // A link is left alone: its target may lie anywhere. Writing replaces the link itself.
    struct stat st;
    if (path.isEmpty() || ::lstat(nativePath(path).constData(), &st) != 0)
        return;
    if (S_ISREG(st.st_mode))
        ::chmod(nativePath(path).constData(), (st.st_mode & 07777) | S_IWUSR);
}

Status writeFileSafely(const QString &path, const QByteArray &data)
{
    const int error = replaceFile(path, data);
    if (error != 0)
        return cannotWrite(path, error);
    return {};
}

} // namespace klangor
