#pragma once

#include <optional>
#include <QString>

namespace klangor {

// CV files are Windows-1252 text with CR LF line ends, as the programming tools keep them.
// The text comes back with plain "\n" line ends; nullopt when the file cannot be read.
std::optional<QString> loadCvText(const QString &path);
// Replaces the file whole; false when it cannot be written (the old file is then untouched).
bool saveCvText(const QString &path, const QString &text);

} // namespace klangor
