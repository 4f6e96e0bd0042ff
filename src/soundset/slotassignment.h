#pragma once

#include "common/result.h"
#include "soundset/slotfilenames.h"
#include "soundset/wavecheck.h"

#include <optional>
#include <QMimeData>
#include <QStringList>

namespace klangor {

enum class AssignWay
{
    DoubleClick,
    Drop
};

// Joins a name from the file list or dropped text to the browsed folder, the way the
// window always has: folder, separator, name, nothing resolved.
QString pathInFolder(const QString &folder, const QString &name);

// Takes checked WAV files into slots: records the name and copies the file to the working
// file of the sound number in the program folder.
class SlotAssigner
{
public:
    SlotAssigner(QString programFolder, WaveChecker &checker);

    // The first step: the check, and on the double-click way the working file made writable.
    // A refusal tells why.
    Status prepare(int soundNumber, const QString &sourcePath, AssignWay way);
    // The second step: records the name and copies the file. On a failed copy the name and the
    // old working file stay as they were, and the result tells why.
    Status take(SlotFileNames &names, int soundNumber, const QString &slotText,
                const QString &sourcePath);

    QString workingFilePath(int soundNumber) const;

private:
    QString m_programFolder;
    WaveChecker &m_checker;
};

// What a drop offers, in the two forms the slots understand.
struct DropPayload
{
    std::optional<QString> text;
    QStringList files; // local paths, in the order of the drop
};

// Text that names local files (file URLs, encoded or not, or absolute paths) is a file list,
// not a name of its own.
DropPayload dropPayloadFrom(const QMimeData &mime);

struct DropChoice
{
    QString slotText;   // what the slot shows and the name that is recorded
    QString sourcePath; // the file that is checked and copied
};

// Text first (a name in the browsed folder), then the first file of a file list when it ends
// in ".wav" in any letter case; nullopt when the drop brings no WAV file.
std::optional<DropChoice> chooseDrop(const DropPayload &payload, const QString &browseFolder);

} // namespace klangor
