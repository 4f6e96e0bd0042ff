#include "soundset/wavefolder.h"

#include <algorithm>
#include <QDir>
#include <QFileInfo>

namespace klangor {

bool hasWaveExtension(const QString &name)
{
    return name.right(4).toUpper() == QStringLiteral(".WAV");
}

std::optional<QStringList> listWaveFiles(const QString &folder)
{
    const QDir dir(folder);
    if (!dir.exists() || !QFileInfo(folder).isReadable())
        return std::nullopt;
    QStringList names;
    const QStringList entries =
        dir.entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::NoSort);
    for (const QString &name : entries) {
        if (hasWaveExtension(name))
            names.append(name);
    }
    // Alphabetical as a person reads it: letter case only breaks ties.
    std::sort(names.begin(), names.end(), [](const QString &a, const QString &b) {
        const int c = a.compare(b, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a < b;
    });
    return names;
}

} // namespace klangor
