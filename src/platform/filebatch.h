#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <utility>
#include <vector>

namespace klangor {

// Several files of one folder replaced together: each is written in full into a staging
// folder beside them, and only commit() moves them into place. A commit that fails half-way
// puts the old files back; one cut short by a kill is finished by the next write into the
// folder (recoverInterruptedWrites), so each file and the set as a whole is either old or new.
// Only renames within the folder are used, so it works on file systems without links (FAT,
// exFAT).
class FileBatch
{
public:
    // keepExisting: a file of the batch's names that lies in the folder by the time of the
    // commit is not replaced; the commit fails and changes nothing.
    explicit FileBatch(QString folder, bool keepExisting = false);
    ~FileBatch(); // removes the staging folder when the batch was not committed
    FileBatch(const FileBatch &) = delete;
    FileBatch &operator=(const FileBatch &) = delete;

    // Writes each file into the staging folder; the first failure is returned. What was staged
    // before it stays staged, so a caller may leave out the file that failed and commit the rest.
    Status stage(const QList<std::pair<QString, QByteArray>> &files);
    Status commit();

private:
    void discard();
    // Moves the first count files back where they were after a failed commit.
    // restored: whether the old file of the failed step is back in its place.
    void rollBack(qsizetype count, const std::vector<bool> &hadOld, bool restored = true);

    QString m_folder;
    bool m_keepExisting;
    QString m_staging;
    int m_lock = -1; // the staging folder, locked while this batch owns it
    QStringList m_names;
    std::vector<int> m_files; // the staged files, open until they are flushed
};

// Held by a writer from the moment its temporary or staging folder appears in folder until it
// has locked it; another writer's recovery does not run meanwhile, so it never takes the fresh
// entry for a leftover.
class MakingTemporary
{
public:
    explicit MakingTemporary(const QString &folder);
    ~MakingTemporary();
    MakingTemporary(const MakingTemporary &) = delete;
    MakingTemporary &operator=(const MakingTemporary &) = delete;

private:
    int m_folder;
};

// Clears what an interrupted run left in folder: temporaries and unfinished staging folders
// go, a batch whose commit had begun is completed, one whose commit failed but could not put
// back all old files gets them back. What another running writer holds is left alone, and so
// is every name the writers do not make. Every write into a folder calls it.
void recoverInterruptedWrites(const QString &folder);
// A name the writers give their temporaries and staging folders.
bool isInterruptedWriteName(const QString &name);

} // namespace klangor
