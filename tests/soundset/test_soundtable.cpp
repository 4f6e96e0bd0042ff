#include "soundset/eventview.h"
#include "soundset/soundtable.h"

#include <gtest/gtest.h>
#include <set>

namespace klangor {
namespace {

TEST(SoundTable, TextsWordForWordIncludingInnerQuotes)
{
    const QStringList texts = SoundTable::texts();
    ASSERT_EQ(texts.size(), 20);
    EXPECT_EQ(texts[0], QString::fromUtf8("Fahrgeräusch während Beschleunigung"));
    EXPECT_EQ(texts[3],
              QString::fromUtf8("Pausenfößller zu 0 bis 3 (Zischen zwischen Dampfstößen)"));
    EXPECT_EQ(texts[6],
              QString::fromUtf8("Startgeräusch (Übergang von \"Geräusch aus\" zu \"Stillstand\")"));
    EXPECT_EQ(texts[7], QString::fromUtf8(
                            "Abstellgeräusch (Übergang von \"Stillstand\" zu \"Geräusch aus\")"));
    EXPECT_EQ(texts[11],
              QString::fromUtf8("Zusatzgeräusch bei Übergang Fahrt - Stillstand (auf Kanal 2)"));
    EXPECT_EQ(texts[12], QString::fromUtf8("Standgeräusch (Stillstand)"));
    EXPECT_EQ(texts[19], QString::fromUtf8("Manuell auslösbares Geräusch 7"));
}

TEST(SoundTable, SlotCountsAndFirstNumbers)
{
    struct Row
    {
        int event, slotCount, first;
    };
    const Row rows[] = {{0, 4, 0},   {1, 4, 4},   {2, 4, 8},   {3, 1, 12},  {4, 1, 13},
                        {5, 1, 14},  {6, 3, 15},  {7, 3, 18},  {8, 3, 21},  {9, 3, 24},
                        {10, 3, 27}, {11, 3, 30}, {12, 4, 33}, {13, 5, 37}, {14, 5, 42},
                        {15, 5, 47}, {16, 5, 52}, {17, 5, 57}, {18, 5, 62}, {19, 5, 67}};
    for (const Row &r : rows) {
        SCOPED_TRACE(r.event);
        EXPECT_EQ(SoundTable::slotCount(r.event), r.slotCount);
        EXPECT_EQ(SoundTable::firstSoundNumber(r.event), r.first);
    }
}

TEST(SoundTable, EveryNumberZeroTo71BelongsToExactlyOneSlot)
{
    std::multiset<int> seen;
    for (int e = 0; e < SoundTable::EventCount; ++e)
        for (int k = 1; k <= SoundTable::slotCount(e); ++k)
            seen.insert(SoundTable::soundNumber(e, k));
    ASSERT_EQ(seen.size(), 72u);
    for (int n = 0; n < 72; ++n)
        EXPECT_EQ(seen.count(n), 1u) << n;
}

TEST(SoundTable, SoundNumberOfSlot)
{
    EXPECT_EQ(SoundTable::soundNumber(0, 1), 0);
    EXPECT_EQ(SoundTable::soundNumber(4, 1), 13);
    EXPECT_EQ(SoundTable::soundNumber(13, 1), 37);
    EXPECT_EQ(SoundTable::soundNumber(19, 5), 71);
    // Slots the event lacks, and events that do not exist, have no sound number.
    EXPECT_EQ(SoundTable::soundNumber(3, 2), -1);
    EXPECT_EQ(SoundTable::soundNumber(0, 5), -1);
    EXPECT_EQ(SoundTable::soundNumber(0, 0), -1);
    EXPECT_EQ(SoundTable::soundNumber(-1, 1), -1);
    EXPECT_EQ(SoundTable::soundNumber(20, 1), -1);
}

TEST(SoundTable, WorkingFileNamesHaveNoLeadingZeros)
{
    EXPECT_EQ(workingFileName(0), QStringLiteral("0.wav"));
    EXPECT_EQ(workingFileName(7), QStringLiteral("7.wav"));
    EXPECT_EQ(workingFileName(71), QStringLiteral("71.wav"));
}

// The four classes of the event view: which rows are enabled, which are emptied.
TEST(EventView, EnableClassesByEvent)
{
    SlotFileNames names;
    for (int n = 0; n < SlotFileNames::Count; ++n)
        names.set(n, QStringLiteral("s%1.wav").arg(n));

    struct Class
    {
        std::vector<int> events;
        int enabledRows;
    };
    const Class classes[] = {{{0, 1, 2, 12}, 4},
                             {{3, 4, 5}, 1},
                             {{6, 7, 8, 9, 10, 11}, 3},
                             {{13, 14, 15, 16, 17, 18, 19}, 5}};
    for (const Class &c : classes) {
        for (const int e : c.events) {
            SCOPED_TRACE(e);
            const EventView view = eventViewFor(e, names);
            EXPECT_EQ(view.caption, SoundTable::text(e));
            for (int k = 1; k <= 5; ++k) {
                const SlotRowView &row = view.rows[static_cast<std::size_t>(k - 1)];
                EXPECT_EQ(row.enabled, k <= c.enabledRows) << "row " << k;
                const QString expected =
                    k <= c.enabledRows ? names.at(SoundTable::soundNumber(e, k)) : QString();
                EXPECT_EQ(row.text, expected) << "row " << k;
            }
        }
    }
}

TEST(EventView, EntriesBeyond71NeverShow)
{
    SlotFileNames names;
    for (int n = 72; n < SlotFileNames::Count; ++n)
        names.set(n, QStringLiteral("hidden.wav"));
    for (int e = 0; e < SoundTable::EventCount; ++e)
        for (const SlotRowView &row : eventViewFor(e, names).rows)
            EXPECT_TRUE(row.text.isEmpty()) << e;
}

TEST(SlotFileNames, EightyEightEntriesStartEmpty)
{
    SlotFileNames names;
    for (int n = 0; n < 88; ++n)
        EXPECT_FALSE(names.isAssigned(n));
    names.set(87, QStringLiteral(" "));
    EXPECT_TRUE(names.isAssigned(87)); // blanks count as a name
    names.clear();
    EXPECT_FALSE(names.isAssigned(87));
    EXPECT_THROW(names.set(88, QStringLiteral("x")), std::out_of_range);
}

} // namespace
} // namespace klangor
