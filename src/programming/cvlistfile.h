#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QString>

namespace klangor {

// A CV list is a few kilobytes of short lines. The CV box lays out 256 kB of such lines in some
// 30 ms (a megabyte in 90), but takes seconds for one line of 64 kB; larger files and longer
// lines are no CV list and are refused before they reach it.
inline constexpr qint64 MaxCvFileBytes = qint64(256) << 10;
inline constexpr qsizetype MaxCvLineCharacters = 1000;

// CV files are Windows-1252 text with CR LF line ends, as the programming tools keep them.
// The text comes back with plain "\n" line ends; a file in RTF gives its plain text.
QString cvTextFromBytes(const QByteArray &bytes);
// The same, refused when a line is longer than MaxCvLineCharacters.
Result<QString> cvListText(const QByteArray &bytes);
Result<QString> loadCvText(const QString &path);
// Replaces the file whole; on failure the old file is untouched.
Status saveCvText(const QString &path, const QString &text);

} // namespace klangor
