// Any bytes as a .spj file: reading must refuse or accept cleanly, and an accepted project
// may only name plain files inside the program folder.
#include "project/soundproject.h"

#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fuzz.spj"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    file.close();

    klangor::SaveSoundProjekt projects(dir.path());
    const auto project = projects.readProject(path);
    if (!project)
        return 0;
    for (const QString &name : project.value().fileNames) {
        if (name.isEmpty() || name == QStringLiteral(".") || name == QStringLiteral("..") ||
            name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')))
            __builtin_trap();
    }
    return 0;
}
