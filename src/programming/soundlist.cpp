#include "programming/soundlist.h"

#include "platform/programfiles.h"
#include "platform/safefile.h"

#include <QDir>

namespace klangor {

QByteArray soundListBytes(const SlotFileNames &names, int memoryMBit)
{
    QByteArray bytes;
    if (memoryMBit == 16)
        bytes += "**16MBit\r\n";
    for (int n = 0; n < SlotFileNames::Count; ++n) {
        // Only whether a name is there counts, not what it says.
        const QByteArray file = names.isAssigned(n) ? workingFileName(n).toLatin1() : "---";
        bytes += QByteArray::number(n).rightJustified(2, '0') + ": " + file + "\r\n";
    }
    return bytes;
}

void WriteSoundList(const QString &programFolder, const SlotFileNames &names, int memoryMBit)
{
    const QString path = QDir(programFolder).filePath(SoundListFileName);
    ClearReadOnly(path);
    // Ignored on purpose: the tool reports a list it cannot read.
    static_cast<void>(writeFileSafely(path, soundListBytes(names, memoryMBit)));
}

} // namespace klangor
