#include "platform/filebatch.h"

#include "platform/fileprimitives.h"
#include "platform/systemreason.h"

#include <atomic>
#include <fcntl.h>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace klangor {

using namespace files;

namespace {

const QString kStagingPrefix = SafeFilePrefix + QStringLiteral("staging-");
const QString kCommitPrefix = SafeFilePrefix + QStringLiteral("commit-");

// An entry other than a folder (a file, a link, ...) lies at path; a link is not followed.
bool holdsNonFolder(const QString &path)
{
    struct stat st;
    return ::lstat(nativePath(path).constData(), &st) == 0 && !S_ISDIR(st.st_mode);
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
