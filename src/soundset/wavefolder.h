#pragma once

#include <optional>
#include <QString>
#include <QStringList>

namespace klangor {

// Names (without folder) of the files in folder whose last four characters, upper-cased,
// are ".WAV"; files only, sorted alphabetically. nullopt when the folder cannot be read.
std::optional<QStringList> listWaveFiles(const QString &folder);

// ".wav" in any letter case.
bool hasWaveExtension(const QString &name);

} // namespace klangor
