#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QString>

namespace klangor {

// Makes an existing regular file writable for its owner before the program replaces it.
// Links are left alone: their target may lie anywhere. Every failure is ignored.
void ClearReadOnly(const QString &path);

// Replaces path with a file holding exactly data: written to a temporary in the same folder,
// every write checked, flushed to the disk, then renamed over path. A link at path is replaced
// itself; its target is never touched. On failure path is as it was and no temporary remains.
Status writeFileSafely(const QString &path, const QByteArray &data);

} // namespace klangor
