#pragma once

#include "common/result.h"

#include <QString>
#include <QStringList>

namespace klangor {

// The folder the program works in. The executable's own folder when the CV default files lie
// beside it and it can be written (a build, or a copy unpacked somewhere of the user's);
// otherwise (an installed program, even when run by root) a per-user folder that is created
// and seeded with the CV default files found in seedFolders, so working files never go to a
// system folder. When that folder cannot be created, the message says so; the caller then
// has only the executable's folder left, where saving will fail.
Result<QString> resolveProgramFolder(const QString &executableFolder, const QString &userFolder,
                                     const QStringList &seedFolders);

// True when a file can be created in folder.
bool isWritableFolder(const QString &folder);

} // namespace klangor
