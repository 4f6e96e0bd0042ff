// Any bytes opened as a whole project into a scratch program folder: whatever happens, nothing
// may appear or change outside that folder, and inside it only the program's own files.
#include "project/soundprojectfile.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

namespace {

// Every entry below root, with its size and mode.
QStringList entries(const QString &root)
{
    QStringList list;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        list << QStringLiteral("%1 %2 %3")
                    .arg(QDir(root).relativeFilePath(info.filePath()))
                    .arg(info.size())
                    .arg(static_cast<int>(info.permissions()));
    }
    list.sort();
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir scratch;
    const QString program = scratch.filePath(QStringLiteral("program"));
    const QString outside = scratch.filePath(QStringLiteral("outside"));
    const QString project = scratch.filePath(QStringLiteral("fuzz.spj"));
    QDir(program).removeRecursively();
    QDir().mkpath(program);
    QDir().mkpath(outside);
    QFile file(project);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    file.close();
    const QStringList before = entries(outside);

    klangor::SoundProjectFile projects(program);
    const auto loaded = projects.readProject(project);
    if (loaded)
        (void)projects.restoreProject(loaded.value(), program);

    if (entries(outside) != before ||
        QDir(scratch.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot) !=
            QStringList(
                {QStringLiteral("fuzz.spj"), QStringLiteral("outside"), QStringLiteral("program")}))
        __builtin_trap();
    for (const QFileInfo &entry : QDir(program).entryInfoList(
             QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (!entry.isFile() || entry.isSymLink() || entry.isExecutable() ||
            klangor::restoredFileName(entry.fileName()) != entry.fileName())
            __builtin_trap();
    }
    return 0;
}
