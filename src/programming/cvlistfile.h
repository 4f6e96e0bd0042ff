#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QString>

namespace klangor {

// A CV list is a few kilobytes of text; this only keeps a wrong file from filling the memory.
inline constexpr qint64 MaxCvFileBytes = qint64(16) << 20;

// CV files are Windows-1252 text with CR LF line ends, as the programming tools keep them.
// The text comes back with plain "\n" line ends; a file in RTF gives its plain text.
QString cvTextFromBytes(const QByteArray &bytes);
Result<QString> loadCvText(const QString &path);
// Replaces the file whole; on failure the old file is untouched.
Status saveCvText(const QString &path, const QString &text);

} // namespace klangor
