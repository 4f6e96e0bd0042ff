#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <utility>

namespace klangor {

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
