#include "platform/filebatch.h"

#include "platform/fileprimitives.h"
#include "platform/systemreason.h"

#include <atomic>
#include <fcntl.h>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace klangor {

using namespace files;

namespace {

const QString kStagingPrefix = SafeFilePrefix + QStringLiteral("staging-");
const QString kCommitPrefix = SafeFilePrefix + QStringLiteral("commit-");
// A committing batch that keeps existing files: completed, it still replaces none.
const QString kKeepPrefix = SafeFilePrefix + QStringLiteral("keep-");
// A failed batch whose old files the next write puts back, as the failure said nothing changed.
const QString kUndoPrefix = SafeFilePrefix + QStringLiteral("undo-");

// An entry other than a folder (a file, a link, ...) lies at path; a link is not followed.
bool holdsNonFolder(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
}

bool moveEntry(const QString &from, const QString &to)
{
    return ::rename(nativePath(from).constData(), nativePath(to).constData()) == 0;
}

// Like moveEntry, but never over an entry at to (false with EEXIST); where the file system
// cannot refuse that itself, a look first leaves only a short race.
bool moveEntryBesides(const QString &from, const QString &to)
{
    const QByteArray source = nativePath(from);
    const QByteArray target = nativePath(to);
    const int done =
        ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
    if (done == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
        return false;
    struct stat st;
    if (::lstat(target.constData(), &st) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(source.constData(), target.constData()) == 0;
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

// A file of the staging folder, written in full; its way to the disk is started here and
// waited for in commit(), so the files of a batch travel together. The descriptor or -1 with
// errno set.
int writeNew(const QString &path, const QByteArray &data)
{
    Descriptor file(::open(nativePath(path).constData(),
                           O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!file.valid())
        return -1;
    if (writeAll(file.get(), data)) {
        ::sync_file_range(file.get(), 0, 0, SYNC_FILE_RANGE_WRITE); // only a head start
        return file.release();
    }
    const int error = errno;
    ::unlink(nativePath(path).constData()); // a part-written file is not staged
    errno = error;
    return -1;
}

// Puts what lies in from (a batch's "new" or "old" folder) into folder, over what is there unless
// keepExisting and the name is not one of replaceable. False when a file could not be moved in.
bool moveAllInto(const QString &from, const QString &folder, bool keepExisting,
                 const QStringList &replaceable = {})
{
    const QDir source(from);
    bool moved = true;
    for (const QString &name : source.entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        const QString target = QDir(folder).filePath(name);
        if (keepExisting && !replaceable.contains(name))
            moved = (moveEntryBesides(source.filePath(name), target) || errno == EEXIST) && moved;
        else
            moved = moveEntry(source.filePath(name), target) && moved;
    }
    syncFolder(folder);
    return moved;
}

} // namespace

MakingTemporary::MakingTemporary(const QString &folder)
    : m_folder(::open(nativePath(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (m_folder >= 0)
        ::flock(m_folder, LOCK_SH);
}

MakingTemporary::~MakingTemporary()
{
    if (m_folder >= 0)
        ::close(m_folder);
}

FileBatch::FileBatch(QString folder, bool keepExisting)
    : m_folder(std::move(folder)), m_keepExisting(keepExisting)
{}

FileBatch::~FileBatch()
{
    discard();
}

void FileBatch::discard()
{
    for (const int fd : m_files) {
        if (fd >= 0)
            ::close(fd);
    }
    m_files.clear();
    if (!m_staging.isEmpty())
        removeTree(m_staging);
    if (m_lock >= 0)
        ::close(std::exchange(m_lock, -1));
    m_staging.clear();
    m_names.clear();
}

Status FileBatch::stage(const QList<std::pair<QString, QByteArray>> &files)
{
    if (m_staging.isEmpty()) {
        recoverInterruptedWrites(m_folder);
        const MakingTemporary making(m_folder);
        const QString staging = QDir(m_folder).filePath(kStagingPrefix + randomSuffix());
        if (::mkdir(nativePath(staging).constData(), 0700) != 0 ||
            ::mkdir(nativePath(staging + QStringLiteral("/new")).constData(), 0700) != 0 ||
            ::mkdir(nativePath(staging + QStringLiteral("/old")).constData(), 0700) != 0) {
            const int error = errno;
            removeTree(staging);
            return {QStringLiteral("Im Ordner „%1“ kann nichts abgelegt werden: %2")
                        .arg(shown(m_folder), systemReason(error))};
        }
        // Held until the batch is done, so that no other writer takes it for a leftover.
        m_lock = ::open(nativePath(staging).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_lock >= 0)
            ::flock(m_lock, LOCK_EX | LOCK_NB);
        m_staging = staging;
    }
    for (const auto &[name, data] : files) {
        if (isDevice(QDir(m_folder).filePath(name)))
            return cannotWrite(QDir(m_folder).filePath(name), ENODEV);
        const int fd = writeNew(m_staging + QStringLiteral("/new/") + name, data);
        if (fd < 0) // named after the file it was meant to replace, not the staging copy
            return cannotWrite(QDir(m_folder).filePath(name), errno);
        m_files.push_back(fd);
        m_names.append(name);
    }
    return {};
}

Status FileBatch::commit()
{
    // Every staged file reaches the disk before the batch may be completed; each by its own
    // descriptor, as a flush of the whole file system may take seconds on a slow stick.
    int flushError = 0;
    QString failed;
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        const int fd = std::exchange(m_files[i], -1);
        const int synced = ::fdatasync(fd) == 0 ? 0 : errno;
        const int closed = ::close(fd) == 0 ? 0 : errno;
        if ((synced != 0 || closed != 0) && flushError == 0) {
            flushError = synced != 0 ? synced : closed;
            failed = m_names.at(static_cast<qsizetype>(i));
        }
    }
    if (flushError != 0) {
        discard();
        return cannotWrite(QDir(m_folder).filePath(failed), flushError);
    }
    m_files.clear();
    syncFolder(m_staging + QStringLiteral("/new"));
    // From this rename on, the next write into the folder completes the batch.
    const QString committing = QDir(m_folder).filePath(
        (m_keepExisting ? kKeepPrefix : kCommitPrefix) + m_staging.section(QLatin1Char('-'), -1));
    if (!moveEntry(m_staging, committing)) {
        const int error = errno;
        discard();
        return cannotWrite(m_folder, error);
    }
    m_staging = committing;
    syncFolder(m_folder);

    // Each old file steps aside into the batch before its new one takes its place, so that
    // a failure can put it back; a kill in between leaves the new one to be moved in.
    const QString target = m_folder + QLatin1Char('/');
    std::vector<bool> hadOld;
    for (qsizetype i = 0; i < m_names.size(); ++i) {
        const QString &name = m_names.at(i);
        hadOld.push_back(holdsNonFolder(target + name));
        if (hadOld.back() && m_keepExisting) {
            hadOld.pop_back();
            rollBack(i, hadOld);
            return cannotWrite(target + name, EEXIST);
        }
        const bool oldStayed =
            hadOld.back() && !moveEntry(target + name, m_staging + QStringLiteral("/old/") + name);
        const QString staged = m_staging + QStringLiteral("/new/") + name;
        // A keeping batch also spares a file that appeared since the look above.
        if (oldStayed || !(m_keepExisting ? moveEntryBesides(staged, target + name)
                                          : moveEntry(staged, target + name))) {
            const int error = errno;
            // Back in its place, unless it never left.
            const bool restored =
                !hadOld.back() || oldStayed ||
                moveEntry(m_staging + QStringLiteral("/old/") + name, target + name);
            rollBack(i, hadOld, restored);
            return cannotWrite(target + name, error);
        }
    }
    syncFolder(m_folder);
    discard();
    return {};
}

void FileBatch::rollBack(qsizetype count, const std::vector<bool> &hadOld, bool restored)
{
    // The reverse of the commit, file by file: a kill meanwhile leaves every new file either
    // in place or back in the batch, which the next write then completes.
    const QString target = m_folder + QLatin1Char('/');
    for (qsizetype back = count - 1; back >= 0; --back) {
        const QString &name = m_names.at(back);
        moveEntry(target + name, m_staging + QStringLiteral("/new/") + name);
        if (hadOld[static_cast<std::size_t>(back)])
            restored =
                moveEntry(m_staging + QStringLiteral("/old/") + name, target + name) && restored;
    }
    syncFolder(m_folder);
    if (!restored) {
        // An old file that could not be put back is never thrown away: the batch stays for the
        // next write to put it back (or, if even this rename fails, to complete the batch).
        moveEntry(m_staging, QDir(m_folder).filePath(kUndoPrefix + randomSuffix()));
        syncFolder(m_folder);
        m_staging.clear(); // kept, not removed
        discard();
        return;
    }
    // No longer to be completed: the batch is only thrown away.
    const QString abandoned = QDir(m_folder).filePath(kStagingPrefix + randomSuffix());
    if (moveEntry(m_staging, abandoned))
        m_staging = abandoned;
    discard();
}

bool isInterruptedWriteName(const QString &name)
{
    // Only the names the writers make; a user's own ".klangor-notes.txt" is no leftover.
    static const QRegularExpression ours(QRegularExpression::anchoredPattern(
        QRegularExpression::escape(SafeFilePrefix) +
        QStringLiteral("(tmp|staging|commit|keep|undo)-[0-9a-z]+")));
    return ours.match(name).hasMatch();
}

void recoverInterruptedWrites(const QString &folder)
{
    // While another writer is making its temporary, what lies here may be fresh: the next
    // write clears it instead.
    const Descriptor held(
        ::open(nativePath(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (held.valid() && ::flock(held.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return;
    const QDir dir(folder);
    const QStringList leftovers =
        dir.entryList({SafeFilePrefix + QLatin1Char('*')}, QDir::Files | QDir::Dirs | QDir::Hidden |
                                                               QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : leftovers) {
        if (!isInterruptedWriteName(name))
            continue;
        const QString path = dir.filePath(name);
        const QByteArray native = nativePath(path);
        Descriptor entry(
            ::open(native.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!entry.valid()) {
            if (errno == ELOOP) // a link in our name's place: the link goes, never its target
                ::unlink(native.constData());
            continue;
        }
        if (::flock(entry.get(), LOCK_EX | LOCK_NB) != 0)
            continue; // a writer that is still running holds it
        struct stat st;
        if (::fstat(entry.get(), &st) != 0)
            continue;
        if (!S_ISDIR(st.st_mode)) {
            ::unlink(native.constData());
            continue;
        }
        // Only the batch's own folder is emptied: a link in its place may lead anywhere.
        const bool keep = name.startsWith(kKeepPrefix);
        // A batch that could not be completed keeps the old files it holds, for the next try;
        // an undone one puts back its old files where nothing new has taken their place.
        const bool undo = name.startsWith(kUndoPrefix);
        const QString from = path + (undo ? QStringLiteral("/old") : QStringLiteral("/new"));
        QStringList ownNewInPlace; // could not be taken back into the batch
        if (undo) {
            for (const QString &old :
                 QDir(from).entryList(QDir::Files | QDir::Hidden | QDir::System)) {
                if (!QFileInfo::exists(path + QStringLiteral("/new/") + old))
                    ownNewInPlace.append(old);
            }
        }
        if ((keep || undo || name.startsWith(kCommitPrefix)) && isDirectory(from) &&
            !moveAllInto(from, folder, keep || undo, ownNewInPlace))
            continue;
        removeTree(path);
    }
}

} // namespace klangor
