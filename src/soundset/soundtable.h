#pragma once

#include <array>
#include <optional>
#include <QString>
#include <QStringList>

namespace klangor {

struct SoundEvent
{
    const char16_t *text; // as shown in the event list
    int slotCount;
    int firstSoundNumber;
};

// The 20 sound events of the decoder, in the order of the event list. Every part of the
// program takes sound numbers from here.
class SoundTable
{
public:
    static constexpr int EventCount = 20;
    static constexpr int MaxSlots = 5;
    static constexpr int SoundCount = 72; // sound numbers that belong to a slot

    static bool isValidEvent(int event) { return event >= 0 && event < EventCount; }
    static QString text(int event);
    static int slotCount(int event);
    // Sound number of slot (1-based) of event; none when the event has no such slot.
    static std::optional<int> soundNumber(int event, int slot);
    static QStringList texts();
};

} // namespace klangor
