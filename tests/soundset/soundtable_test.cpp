#include "soundset/eventview.h"
#include "soundset/soundtable.h"

#include <gtest/gtest.h>

namespace klangor {
namespace {

TEST(SoundTable, TextsWordForWordIncludingInnerQuotes)
{
    const QStringList texts = SoundTable::texts();
    ASSERT_EQ(texts.size(), 20);
    const std::pair<int, const char *> samples[] = {
        {0, "Fahrgeräusch während Beschleunigung"},
        {3, "Pausenfößller zu 0 bis 3 (Zischen zwischen Dampfstößen)"},
        {6, "Startgeräusch (Übergang von \"Geräusch aus\" zu \"Stillstand\")"},
        {11, "Zusatzgeräusch bei Übergang Fahrt - Stillstand (auf Kanal 2)"},
        {19, "Manuell auslösbares Geräusch 7"},
    };
    for (const auto &[event, text] : samples)
        EXPECT_EQ(texts[event], QString::fromUtf8(text));
}

// Which slots each event has, and which sound numbers they carry: 0..71, each once.
TEST(SoundTable, SlotsAndSoundNumbers)
{
    const int slotCounts[] = {4, 4, 4, 1, 1, 1, 3, 3, 3, 3, 3, 3, 4, 5, 5, 5, 5, 5, 5, 5};
    int next = 0;
    for (int e = 0; e < SoundTable::EventCount; ++e) {
        for (int k = 1; k <= SoundTable::MaxSlots; ++k)
            EXPECT_EQ(SoundTable::soundNumber(e, k),
                      k <= slotCounts[e] ? std::optional(next + k - 1) : std::nullopt)
                << e << "/" << k;
        next += slotCounts[e];
    }
    EXPECT_EQ(next, 72);
    for (const auto &[event, slot] : {std::pair{0, 0}, {-1, 1}, {20, 1}})
        EXPECT_EQ(SoundTable::soundNumber(event, slot), std::nullopt);
}

// Rows the event has are enabled and show their names; the others are disabled and empty,
// and names of 72..87 never show.
TEST(EventView, RowsOfTheSelectedEvent)
{
    SlotFileNames names;
    for (int n = 0; n < SlotFileNames::Count; ++n)
        names.set(n, QStringLiteral("s%1.wav").arg(n));
    for (int e = 0; e < SoundTable::EventCount; ++e) {
        const EventView view = eventViewFor(e, names);
        EXPECT_EQ(view.caption, SoundTable::text(e));
        for (int k = 1; k <= SoundTable::MaxSlots; ++k) {
            const SlotRowView &row = view.rows[static_cast<std::size_t>(k - 1)];
            const std::optional<int> number = SoundTable::soundNumber(e, k);
            EXPECT_EQ(row.enabled, number.has_value()) << e << "/" << k;
            EXPECT_EQ(row.text, number ? QStringLiteral("s%1.wav").arg(*number) : QString());
        }
    }
}

} // namespace
} // namespace klangor
