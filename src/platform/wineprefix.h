#pragma once

#include "common/result.h"

#include <QString>

namespace klangor {

// Makes COM<port> of the wine prefix lead to devicePath before a tool runs. The prefix is the
// program's own; it is created here when missing, and wine fills it in at its first start.
// Each of COM1..COM4 leads through a link of the program's own (ports/comN), named in the
// prefix's registry: wine's device manager then sets dosdevices/comN to that link whenever it
// starts, instead of to /dev/ttySN, and the link can change between runs without wine.
Status prepareWinePort(const QString &prefix, int port, const QString &devicePath);

} // namespace klangor
