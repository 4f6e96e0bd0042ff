#include "programming/soundlist.h"

#include "soundset/clearreadonly.h"

#include <QDir>
#include <QFile>

namespace klangor {

QByteArray soundListBytes(const SlotFileNames &names, int memoryMBit)
{
    QByteArray bytes;
    if (memoryMBit == 16)
        bytes += "**16MBit\r\n";
    for (int n = 0; n < SlotFileNames::Count; ++n) {
        // Only whether a name is there counts, not what it says.
        const QByteArray file = names.isAssigned(n) ? QByteArray::number(n) + ".wav" : "---";
        bytes += QByteArray::number(n).rightJustified(2, '0') + ": " + file + "\r\n";
    }
    return bytes;
}

bool WriteSoundList(const QString &programFolder, const SlotFileNames &names, int memoryMBit)
{
    const QString path = QDir(programFolder).filePath(QStringLiteral("soundlist.dat"));
    ClearReadOnly(path);
    // Truncated in place rather than replaced, so a file that stayed read-only is left alone.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray bytes = soundListBytes(names, memoryMBit);
    const bool written = file.write(bytes) == bytes.size();
    file.close();
    return written && file.error() == QFileDevice::NoError;
}

} // namespace klangor
