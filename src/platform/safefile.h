#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace klangor {

// Temporaries and staging folders of the program start with this; whatever a killed run left
// behind under this prefix is cleared at the next start.
inline const QString SafeFilePrefix = QStringLiteral(".klangor-");

// The reason the system gave for a failed file operation, in German.
QString systemReason(int errorNumber);

// Makes an existing regular file writable for its owner before the program replaces it, then
// lets pending window events run once. Links are left alone: their target may lie anywhere.
// Every failure is ignored.
void ClearReadOnly(const QString &path);

// Reads a regular file whole (a link is followed only to a regular file). FIFOs, devices and
// folders are refused without waiting on them, and so is a file of more than maxBytes.
Result<QByteArray> readRegularFile(const QString &path, qint64 maxBytes);

// Replaces path with a file holding exactly data: written to a temporary in the same folder,
// every write checked, flushed to the disk, then renamed over path. A link at path is replaced
// itself; its target is never touched. On failure path is as it was and no temporary remains.
Status writeFileSafely(const QString &path, const QByteArray &data);

// Several files of one folder replaced together: each is written in full into a staging
// folder beside them, and only commit() moves them into place. A commit that fails half-way
// puts the old files back; one cut short by a kill is finished by the next start
// (recoverInterruptedWrites), so each file and the set as a whole is either old or new.
class FileBatch
{
public:
    explicit FileBatch(QString folder);
    ~FileBatch(); // removes the staging folder when the batch was not committed
    FileBatch(const FileBatch &) = delete;
    FileBatch &operator=(const FileBatch &) = delete;

    // Writes each file into the staging folder; the first failure is returned. What was staged
    // before it stays staged, so a caller may leave out the file that failed and commit the rest.
    Status stage(const QList<std::pair<QString, QByteArray>> &files);
    Status commit();

private:
    void discard();

    QString m_folder;
    QString m_staging;
    QStringList m_names;
};

// Clears what an interrupted run left in folder: temporaries and unfinished staging folders
// go, a batch whose commit had begun is completed.
void recoverInterruptedWrites(const QString &folder);

} // namespace klangor
