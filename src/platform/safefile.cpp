#include "platform/safefile.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace klangor {

namespace {

const QString kTempPrefix = SafeFilePrefix + QStringLiteral("tmp-");
const QString kStagingPrefix = SafeFilePrefix + QStringLiteral("staging-");
const QString kCommitPrefix = SafeFilePrefix + QStringLiteral("commit-");

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

UserMessage cannotRead(const QString &path, const QString &reason)
{
    return {
        QStringLiteral("Die Datei „%1“ kann nicht gelesen werden: %2").arg(shown(path), reason)};
}

// Closes a descriptor once, keeping errno of the operation that failed before.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0) {
            const int saved = errno;
            ::close(m_fd);
            errno = saved;
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    // close() reports late write errors of some file systems, so its result counts.
    bool close()
    {
        const int fd = std::exchange(m_fd, -1);
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

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
        ::fsync(dir.get()); // makes the renames durable; not every file system can
}

bool isDirectory(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A device node lies at path. Writing there would replace the node (as root, one of /dev), so
// nothing is written; a FIFO or a socket is replaced like a file.
bool isDevice(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 &&
           (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode));
}

// An entry other than a folder (a file, a link, ...) lies at path; a link is not followed.
bool holdsNonFolder(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// A new file in folder under a name of its own, created from the start under a unique
// temporary name, or anonymous (no name until linked) where the file system allows it,
// so that a kill in the middle of writing leaves nothing behind.
struct TempFile
{
    int fd = -1;
    QString name; // empty while anonymous
};

TempFile createTemp(const QString &folder)
{
    const int anonymous =
        ::open(nativePath(folder).constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (anonymous >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
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

// Freeing the blocks of a file takes a few milliseconds on some file systems right after a
// flush; side by side, a folder of old sounds goes in a fraction of the time.
void removeTree(const QString &path)
{
    QList<QByteArray> files;
    QDirIterator it(path, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(nativePath(it.next()));
    std::atomic<qsizetype> next{0};
    const auto work = [&] {
        for (qsizetype i = next++; i < files.size(); i = next++)
            ::unlink(files.at(i).constData());
    };
    {
        std::vector<std::jthread> helpers;
        for (int h = 1; h < 8 && h * 4 < files.size(); ++h)
            helpers.emplace_back(work);
        work();
    }
    QDir(path).removeRecursively();
}

// 0 or the errno of the step that failed.
int replaceFile(const QString &path, const QByteArray &data)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (isDirectory(path))
        return EISDIR;
    if (isDevice(path))
        return ENODEV;
    TempFile temp = createTemp(folder);
    Descriptor file(temp.fd);
    if (!file.valid())
        return errno;

    const bool written = writeAll(file.get(), data) && ::fsync(file.get()) == 0 &&
                         (!temp.name.isEmpty() || nameTemp(temp, folder)) && file.close();
    if (written && ::rename(nativePath(temp.name).constData(), nativePath(path).constData()) == 0) {
        syncFolder(folder);
        return 0;
    }
    const int error = errno;
    if (!temp.name.isEmpty())
        ::unlink(nativePath(temp.name).constData());
    return error;
}

// A file of the staging folder: written in full but not flushed yet; commit() flushes them all
// at once, which is far quicker than one by one.
int writeNew(const QString &path, const QByteArray &data)
{
    Descriptor file(::open(nativePath(path).constData(),
                           O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!file.valid())
        return errno;
    if (writeAll(file.get(), data) && file.close())
        return 0;
    const int error = errno;
    ::unlink(nativePath(path).constData()); // a part-written file is not staged
    return error;
}

} // namespace

QString systemReason(int errorNumber)
{
    switch (errorNumber) {
    case ENOSPC:
        return QStringLiteral("Auf dem Datenträger ist kein Platz mehr frei.");
    case EDQUOT:
        return QStringLiteral("Das Speicherkontingent ist erschöpft.");
    case EACCES:
    case EPERM:
        return QStringLiteral("Keine Schreibberechtigung.");
    case EROFS:
        return QStringLiteral("Der Datenträger ist schreibgeschützt.");
    case ENOENT:
        return QStringLiteral("Die Datei oder der Ordner existiert nicht.");
    case EISDIR:
        return QStringLiteral("An dieser Stelle liegt ein Ordner.");
    case ENODEV:
        return QStringLiteral("An dieser Stelle liegt ein Gerät, keine Datei.");
    case ENOTDIR:
        return QStringLiteral("Ein Teil des Pfades ist kein Ordner.");
    case ENAMETOOLONG:
        return QStringLiteral("Der Name ist zu lang.");
    case EFBIG:
        return QStringLiteral("Die Datei ist zu groß.");
    case EIO:
        return QStringLiteral("Beim Zugriff auf den Datenträger ist ein Fehler aufgetreten.");
    case EMFILE:
    case ENFILE:
        return QStringLiteral("Es sind zu viele Dateien geöffnet.");
    case ELOOP:
        return QStringLiteral("Zu viele verkettete Verknüpfungen.");
    case EEXIST:
        return QStringLiteral("Unter diesem Namen gibt es schon eine Datei.");
    case ENOTEMPTY:
        return QStringLiteral("Der Ordner ist nicht leer.");
    case EBUSY:
    case ETXTBSY:
        return QStringLiteral("Die Datei wird gerade benutzt.");
    default:
        // The system's own text would be English; the number says enough to look it up.
        return QStringLiteral("Systemfehler %1.").arg(errorNumber);
    }
}

void ClearReadOnly(const QString &path)
{
    // A link is left alone: its target may lie anywhere. Writing replaces the link itself.
    struct stat st;
    if (path.isEmpty() || ::lstat(nativePath(path).constData(), &st) != 0)
        return;
    if (S_ISREG(st.st_mode))
        ::chmod(nativePath(path).constData(), (st.st_mode & 07777) | S_IWUSR);
    if (QCoreApplication::instance())
        QCoreApplication::processEvents();
}

Result<QByteArray> readRegularFile(const QString &path, qint64 maxBytes)
{
    // O_NONBLOCK: opening a FIFO must not wait for a writer.
    Descriptor file(::open(nativePath(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid()) {
        const int error = errno;
        return cannotRead(path, error == EACCES || error == EPERM
                                    ? QStringLiteral("Keine Leseberechtigung.")
                                    : systemReason(error));
    }
    struct stat st;
    if (::fstat(file.get(), &st) != 0)
        return cannotRead(path, systemReason(errno));
    if (!S_ISREG(st.st_mode))
        return cannotRead(path, QStringLiteral("Das ist keine gewöhnliche Datei."));
    if (st.st_size > maxBytes)
        return cannotRead(path, QStringLiteral("Die Datei ist zu groß."));

    // Never more than the size seen at the start, however the file changes meanwhile.
    QByteArray data(static_cast<qsizetype>(st.st_size), Qt::Uninitialized);
    qsizetype done = 0;
    while (done < data.size()) {
        const ssize_t n =
            ::read(file.get(), data.data() + done, static_cast<size_t>(data.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return cannotRead(path, systemReason(errno));
        if (n == 0)
            break;
        done += n;
    }
    data.truncate(done);
    return data;
}

Status writeFileSafely(const QString &path, const QByteArray &data)
{
    const int error = replaceFile(path, data);
    if (error != 0)
        return cannotWrite(path, error);
    return {};
}

FileBatch::FileBatch(QString folder) : m_folder(std::move(folder)) {}

FileBatch::~FileBatch()
{
    discard();
}

void FileBatch::discard()
{
    if (!m_staging.isEmpty())
        removeTree(m_staging);
    m_staging.clear();
    m_names.clear();
}

Status FileBatch::stage(const QList<std::pair<QString, QByteArray>> &files)
{
    if (m_staging.isEmpty()) {
        const QString staging = QDir(m_folder).filePath(kStagingPrefix + randomSuffix());
        if (::mkdir(nativePath(staging).constData(), 0700) != 0 ||
            ::mkdir(nativePath(staging + QStringLiteral("/new")).constData(), 0700) != 0 ||
            ::mkdir(nativePath(staging + QStringLiteral("/old")).constData(), 0700) != 0) {
            const int error = errno;
            removeTree(staging);
            return {QStringLiteral("Im Ordner „%1“ kann nichts abgelegt werden: %2")
                        .arg(shown(m_folder), systemReason(error))};
        }
        m_staging = staging;
    }
    for (const auto &[name, data] : files) {
        if (isDevice(QDir(m_folder).filePath(name)))
            return cannotWrite(QDir(m_folder).filePath(name), ENODEV);
        if (const int error = writeNew(m_staging + QStringLiteral("/new/") + name, data)) {
            // Named after the file it was meant to replace, not the staging copy.
            return cannotWrite(QDir(m_folder).filePath(name), error);
        }
        m_names.append(name);
    }
    return {};
}

Status FileBatch::commit()
{
    const QString target = m_folder + QLatin1Char('/');
    // Hard links keep the old files, so a failed rename can put them back.
    for (const QString &name : std::as_const(m_names)) {
        const QString old = target + name;
        if (holdsNonFolder(old) &&
            ::linkat(AT_FDCWD, nativePath(old).constData(), AT_FDCWD,
                     nativePath(m_staging + QStringLiteral("/old/") + name).constData(), 0) != 0) {
            const int error = errno;
            discard();
            return cannotWrite(old, error);
        }
    }
    // Every staged file reaches the disk before the batch may be completed.
    {
        Descriptor staging(
            ::open(nativePath(m_staging).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!staging.valid() || ::syncfs(staging.get()) != 0) {
            const int error = errno;
            discard();
            return cannotWrite(m_folder, error);
        }
    }
    // From this rename on, a start after a kill completes the batch.
    const QString committing =
        QDir(m_folder).filePath(kCommitPrefix + m_staging.section(QLatin1Char('-'), -1));
    if (::rename(nativePath(m_staging).constData(), nativePath(committing).constData()) != 0) {
        const int error = errno;
        discard();
        return cannotWrite(m_folder, error);
    }
    m_staging = committing;
    syncFolder(m_folder);

    for (qsizetype i = 0; i < m_names.size(); ++i) {
        const QString &name = m_names.at(i);
        if (::rename(nativePath(m_staging + QStringLiteral("/new/") + name).constData(),
                     nativePath(target + name).constData()) == 0)
            continue;
        const int error = errno;
        for (qsizetype back = i - 1; back >= 0; --back) {
            const QString &done = m_names.at(back);
            const QByteArray old = nativePath(m_staging + QStringLiteral("/old/") + done);
            if (::rename(old.constData(), nativePath(target + done).constData()) != 0)
                ::unlink(nativePath(target + done).constData());
        }
        syncFolder(m_folder);
        discard();
        return cannotWrite(target + name, error);
    }
    syncFolder(m_folder);
    discard();
    return {};
}

void recoverInterruptedWrites(const QString &folder)
{
    const QDir dir(folder);
    const QFileInfoList leftovers = dir.entryInfoList({SafeFilePrefix + QLatin1Char('*')},
                                                      QDir::Files | QDir::Dirs | QDir::Hidden |
                                                          QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : leftovers) {
        const QString path = entry.absoluteFilePath();
        if (entry.isSymLink() || !entry.isDir()) {
            QFile::remove(path);
            continue;
        }
        // Only the batch's own folder is emptied: a link in its place may lead anywhere.
        if (entry.fileName().startsWith(kCommitPrefix) &&
            isDirectory(path + QStringLiteral("/new"))) {
            const QDir fresh(path + QStringLiteral("/new"));
            for (const QString &name : fresh.entryList(QDir::Files | QDir::Hidden))
                ::rename(nativePath(fresh.filePath(name)).constData(),
                         nativePath(dir.filePath(name)).constData());
            syncFolder(folder);
        }
        removeTree(path);
    }
}

} // namespace klangor
