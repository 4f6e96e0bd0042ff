#pragma once

#include <optional>
#include <QList>
#include <QString>
#include <QStringList>

namespace klangor {

// A file of the file list: a WAV file goes to the decoder check as it is, any other sound
// file is converted first.
struct SoundFileEntry
{
    QString name; // without folder
    bool needsConversion = false;

    friend bool operator==(const SoundFileEntry &, const SoundFileEntry &) = default;
};

// The files in folder whose last four characters, upper-cased, are ".WAV", and those whose
// extension names another type the conversion reads; files only, sorted alphabetically.
// nullopt when the folder cannot be read. Only the first MaxScannedEntries entries of the
// folder are looked at (a window may not stand still over a folder of a hundred thousand
// files); *cut tells whether there were more.
inline constexpr int MaxScannedEntries = 10000;
std::optional<QList<SoundFileEntry>> listSoundFiles(const QString &folder, bool *cut = nullptr);

// ".wav" in any letter case.
bool hasWaveExtension(const QString &name);
// Another sound file type the conversion reads (".ogg", ".flac" ... in any letter case).
bool needsConversion(const QString &name);

// name when folder holds nothing of that name, else the first free "<base> (2).<ext>",
// "<base> (3).<ext>" ...
QString freeFileName(const QString &folder, const QString &name);

} // namespace klangor
