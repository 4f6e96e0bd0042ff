#pragma once

#include <functional>
#include <QMap>
#include <QTemporaryDir>

namespace klangor::test {

// Replaces what folder holds with files.
void setFolder(const QString &folder, const QMap<QString, QByteArray> &files);

// 50 kills of work, half right before renames spread over all it makes, half at random times.
// Each starts from the files old; after nextRun (the program's next write into the folder)
// state() is the one before the work or the one after it, never a mix.
void expectOldOrNewAfterKills(const std::function<void()> &work, const QString &folder,
                              const QMap<QString, QByteArray> &old,
                              const std::function<QMap<QString, QByteArray>()> &state,
                              const std::function<void()> &nextRun);

// A fresh exFAT file system as on a USB stick, through FUSE on a loop device (so root only):
// mkfs.exfat from exfatprogs, mount.exfat-fuse from exfat-fuse.
struct ExfatDisk
{
    ExfatDisk();
    ~ExfatDisk();
    Q_DISABLE_COPY(ExfatDisk)

    QTemporaryDir dir;
    QString path; // where it is mounted; empty when it could not be, with the reason in why
    QString why;
    QString loop;
};

} // namespace klangor::test
