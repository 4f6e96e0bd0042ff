#include "soundset/soundtable.h"

namespace klangor {

namespace {

// clang-format off
constexpr std::array<SoundEvent, SoundTable::EventCount> kEvents = {{
    {u"Fahrgeräusch während Beschleunigung", 4, 0},
    {u"Fahrgeräusch konstantes Tempo", 4, 4},
    {u"Fahrgeräusch während Bremsen", 4, 8},
    {u"Pausenfößller zu 0 bis 3 (Zischen zwischen Dampfstößen)", 1, 12},
    {u"Pausenfößller zu 4 bis 7 (Zischen zwischen Dampfstößen)", 1, 13},
    {u"Pausenfößller zu 8 bis 11 (Zischen zwischen Dampfstößen)", 1, 14},
    {u"Startgeräusch (Übergang von \"Geräusch aus\" zu \"Stillstand\")", 3, 15},
    {u"Abstellgeräusch (Übergang von \"Stillstand\" zu \"Geräusch aus\")", 3, 18},
    {u"Geräusch bei Übergang Stillstand - Fahrt", 3, 21},
    {u"Zusatzgeräusch bei Übergang Stillstand - Fahrt (auf Kanal 2)", 3, 24},
    {u"Geräusch bei Übergang Fahrt - Stillstand", 3, 27},
    {u"Zusatzgeräusch bei Übergang Fahrt - Stillstand (auf Kanal 2)", 3, 30},
    {u"Standgeräusch (Stillstand)", 4, 33},
    {u"Manuell auslösbares Geräusch 1", 5, 37},
    {u"Manuell auslösbares Geräusch 2", 5, 42},
    {u"Manuell auslösbares Geräusch 3", 5, 47},
    {u"Manuell auslösbares Geräusch 4", 5, 52},
    {u"Manuell auslösbares Geräusch 5", 5, 57},
    {u"Manuell auslösbares Geräusch 6", 5, 62},
    {u"Manuell auslösbares Geräusch 7", 5, 67},
}};
// clang-format on

// The first sound numbers must be the running sum of the slot counts.
constexpr bool numbersFollowWithoutGaps()
{
    int next = 0;
    for (const SoundEvent &e : kEvents) {
        if (e.firstSoundNumber != next)
            return false;
        next += e.slotCount;
    }
    return next == SoundTable::SoundCount;
}
static_assert(numbersFollowWithoutGaps());

} // namespace

QString SoundTable::text(int event)
{
    return isValidEvent(event) ? QString::fromUtf16(kEvents[event].text) : QString();
}

int SoundTable::slotCount(int event)
{
    return isValidEvent(event) ? kEvents[event].slotCount : 0;
}

std::optional<int> SoundTable::soundNumber(int event, int slot)
{
    if (slot < 1 || slot > slotCount(event))
        return std::nullopt;
    return kEvents[event].firstSoundNumber + slot - 1;
}

QStringList SoundTable::texts()
{
    QStringList out;
    for (int e = 0; e < EventCount; ++e)
        out.append(text(e));
    return out;
}

} // namespace klangor
