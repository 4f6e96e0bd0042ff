#pragma once

#include "soundset/slotfilenames.h"

#include <QByteArray>
#include <QString>

namespace klangor {

// The sound list handed to the programming tool: "**16MBit" for a 16 MBit decoder, then one
// line per sound number 0..87, "NN: n.wav" when assigned and "NN: ---" when not; every line
// ends in CR LF.
QByteArray soundListBytes(const SlotFileNames &names, int memoryMBit);

// Writes "soundlist.dat" into programFolder, making an old read-only file writable first.
// A failure is not reported: the tool notices a missing or stale list itself.
void WriteSoundList(const QString &programFolder, const SlotFileNames &names, int memoryMBit);

} // namespace klangor
