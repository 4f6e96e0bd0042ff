#include "soundset/eventview.h"

namespace klangor {

EventView eventViewFor(int event, const SlotFileNames &names)
{
    EventView view;
    view.caption = SoundTable::text(event);
    for (int k = 1; k <= SoundTable::MaxSlots; ++k) {
        SlotRowView &row = view.rows[static_cast<std::size_t>(k - 1)];
        const std::optional<int> number = SoundTable::soundNumber(event, k);
        row.enabled = number.has_value();
        row.text = number ? names.at(*number) : QString();
    }
    return view;
}

} // namespace klangor
