#pragma once

#include "soundset/slotfilenames.h"
#include "soundset/soundtable.h"

#include <array>

namespace klangor {

struct SlotRowView
{
    bool enabled = false;
    QString text;
};

// What the event view shows for one selected sound event.
struct EventView
{
    QString caption;
    std::array<SlotRowView, SoundTable::MaxSlots> rows;
};

// Rows the event has are enabled and show their names; the others are disabled and empty.
EventView eventViewFor(int event, const SlotFileNames &names);

} // namespace klangor
