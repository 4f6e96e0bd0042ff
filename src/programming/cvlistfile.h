#pragma once

#include "common/result.h"

#include <QByteArray>
#include <QString>

namespace klangor {

// CV files are Windows-1252 text with CR LF line ends, as the programming tools keep them.
// The text comes back with plain "\n" line ends; a file in RTF gives its plain text.
QString cvTextFromBytes(const QByteArray &bytes);
Result<QString> loadCvText(const QString &path);
// Replaces the file whole; on failure the old file is untouched.
Status saveCvText(const QString &path, const QString &text);

} // namespace klangor
