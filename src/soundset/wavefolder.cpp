#include "soundset/wavefolder.h"

#include "platform/soundfile.h"

#include <algorithm>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

namespace klangor {

bool hasWaveExtension(const QString &name)
{
    return name.right(4).toUpper() == QStringLiteral(".WAV");
}

bool needsConversion(const QString &name)
{
    static const QStringList extensions = readableSoundExtensions();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot >= 0 && !hasWaveExtension(name) &&
           extensions.contains(name.mid(dot + 1), Qt::CaseInsensitive);
}

std::optional<QList<SoundFileEntry>> listSoundFiles(const QString &folder, bool *cut)
{
    const QDir dir(folder);
    if (!dir.exists() || !QFileInfo(folder).isReadable())
        return std::nullopt;
    QList<SoundFileEntry> entries;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System);
    int scanned = 0;
    for (; it.hasNext() && scanned < MaxScannedEntries; ++scanned) {
        const QString name = it.nextFileInfo().fileName();
        if (hasWaveExtension(name))
            entries.append({name, false});
        else if (needsConversion(name))
            entries.append({name, true});
    }
    if (cut)
        *cut = it.hasNext();
    // Alphabetical as a person reads it: letter case only breaks ties.
    std::sort(entries.begin(), entries.end(), [](const SoundFileEntry &a, const SoundFileEntry &b) {
        const int c = a.name.compare(b.name, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a.name < b.name;
    });
    return entries;
}

QString freeFileName(const QString &folder, const QString &name)
{
    const QDir dir(folder);
    const QFileInfo info(name);
    const QString suffix = info.suffix().isEmpty() ? QString() : u'.' + info.suffix();
    QString candidate = name;
    for (int n = 2; QFileInfo::exists(dir.filePath(candidate)) ||
                    QFileInfo(dir.filePath(candidate)).isSymLink();
         ++n)
        candidate = QStringLiteral("%1 (%2)%3").arg(info.completeBaseName()).arg(n).arg(suffix);
    return candidate;
}

} // namespace klangor
