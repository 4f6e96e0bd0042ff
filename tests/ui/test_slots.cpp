#include "form1fixture.h"
#include "ui/widgets.h"

#include <QFile>
#include <QListWidget>
#include <QPushButton>

namespace klangor::test {
namespace {

class Form1Slots : public Form1Fixture
{
protected:
    QString working(int n) const { return m_program.filePath(QStringLiteral("%1.wav").arg(n)); }
    QString stop() const { return QStringLiteral("stop"); }
    QString loop(int n) const { return QStringLiteral("loop:") + working(n); }

    // Assigns name from the file list to slot k of the selected event.
    void assign(int k, const char *name)
    {
        selectInList1(QString::fromUtf8(name));
        window().Slot_DblClick(k);
    }
};

TEST_F(Form1Slots, DoubleClickTakesTheSelectedFile)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(13);
    assign(2, "horn.wav");
    EXPECT_EQ(w.slot(2)->text(), QStringLiteral("horn.wav"));
    EXPECT_EQ(w.slotFileNames().at(38), QStringLiteral("horn.wav"));
    EXPECT_EQ(readFile(working(38)), readFile(soundFile("horn.wav")));
    EXPECT_TRUE(m_messages.shown.isEmpty());
    EXPECT_TRUE(m_sound.calls.isEmpty()); // taking a sound plays nothing
}

TEST_F(Form1Slots, DoubleClickWithoutSelectionDoesNothing)
{
    Form1 &w = window();
    w.list1()->clearSelection();
    w.list1()->setCurrentItem(nullptr);
    w.Slot_DblClick(1);
    EXPECT_TRUE(w.slot(1)->text().isEmpty());
    EXPECT_FALSE(QFile::exists(working(0)));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(Form1Slots, RefusedFileGivesTheSlotItsTextBack)
{
    Form1 &w = window();
    assign(1, "horn.wav");
    assign(1, "stereo.wav");
    EXPECT_EQ(w.slot(1)->text(), QStringLiteral("horn.wav"));
    EXPECT_EQ(w.slotFileNames().at(0), QStringLiteral("horn.wav"));
    EXPECT_EQ(readFile(working(0)), readFile(soundFile("horn.wav")));
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown.first().text, QStringLiteral("Nur Mono Sounds sind erlaubt."));
}

TEST_F(Form1Slots, ReadOnlyWorkingFileIsReplacedOnTheDoubleClickWay)
{
    writeFile(working(1), "old bytes");
    ASSERT_TRUE(QFile::setPermissions(working(1), QFile::ReadOwner));
    assign(2, "Bell.WAV");
    EXPECT_EQ(readFile(working(1)), readFile(soundFile("Bell.WAV")));
    EXPECT_TRUE(QFile::permissions(working(1)) & QFile::WriteOwner);
    EXPECT_EQ(window().slotFileNames().at(1), QStringLiteral("Bell.WAV"));
}

TEST_F(Form1Slots, DropOfTextAndOfFiles)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(19);
    w.Slot_OLEDragDrop(5, DropPayload{QStringLiteral("Bell.WAV"), {}});
    EXPECT_EQ(w.slotFileNames().at(71), QStringLiteral("Bell.WAV"));

    const QString full = soundFile("horn.wav");
    w.Slot_OLEDragDrop(1, DropPayload{std::nullopt, {full, soundFile("Bell.WAV")}});
    EXPECT_EQ(w.slot(1)->text(), full);
    EXPECT_EQ(w.slotFileNames().at(67), full);
    EXPECT_EQ(readFile(working(67)), readFile(full));

    // A first file that is no WAV: nothing, no message.
    w.Slot_OLEDragDrop(2, DropPayload{std::nullopt, {soundFile("readme.txt"), full}});
    EXPECT_TRUE(w.slot(2)->text().isEmpty());
    EXPECT_FALSE(w.slotFileNames().isAssigned(68));
    EXPECT_TRUE(m_messages.shown.isEmpty());

    // Dropped text naming nothing readable: the format message, slot text back.
    w.Slot_OLEDragDrop(1, DropPayload{QStringLiteral("nothing.wav"), {}});
    EXPECT_EQ(w.slot(1)->text(), full);
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown.first().title, QString::fromUtf8("Ungültiger Soundformat"));
}

TEST_F(Form1Slots, SameFileInSeveralSlotsGivesEachItsCopy)
{
    assign(1, "horn.wav");
    assign(3, "horn.wav");
    EXPECT_EQ(readFile(working(0)), readFile(working(2)));
    EXPECT_EQ(window().slotFileNames().at(0), window().slotFileNames().at(2));
}

TEST_F(Form1Slots, LoeschenEmptiesTheSlotButKeepsTheWorkingFile)
{
    Form1 &w = window();
    assign(1, "horn.wav");
    w.loeschen(1)->click();
    EXPECT_TRUE(w.slot(1)->text().isEmpty());
    EXPECT_FALSE(w.slotFileNames().isAssigned(0));
    EXPECT_TRUE(QFile::exists(working(0)));
    EXPECT_TRUE(m_sound.calls.isEmpty()); // no loop of its own: playback untouched
    w.loeschen(2)->click();               // an empty slot: nothing else changes
    EXPECT_TRUE(m_sound.calls.isEmpty());
}

// Each step: the action, then the captions of Test1..Test5, the pointer and the sound calls.
TEST_F(Form1Slots, LoopButtonStateMachine)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(13); // five slots, sound numbers 37..41
    assign(1, "horn.wav");
    assign(2, "Bell.WAV");
    m_sound.calls.clear();

    struct Step
    {
        const char *name;
        std::function<void()> action;
        QString captions;
        MousePointer pointer;
        QStringList calls;
    };
    const Step steps[] = {
        {"loop on an empty slot does nothing",
         [&] { w.test(3)->click(); },
         "LLLLL",
         MousePointer::Default,
         {}},
        {"loop slot 1",
         [&] { w.test(1)->click(); },
         "SLLLL",
         MousePointer::ArrowHourglass,
         {loop(37)}},
        {"loop slot 2 ends slot 1",
         [&] { w.test(2)->click(); },
         "LSLLL",
         MousePointer::ArrowHourglass,
         {loop(38)}},
        {"stop slot 2", [&] { w.test(2)->click(); }, "LLLLL", MousePointer::Default, {stop()}},
        {"loop slot 1 again",
         [&] { w.test(1)->click(); },
         "SLLLL",
         MousePointer::ArrowHourglass,
         {loop(37)}},
        {"Loeschen of another slot leaves the loop",
         [&] { w.loeschen(2)->click(); },
         "SLLLL",
         MousePointer::ArrowHourglass,
         {}},
        {"Loeschen of the looping slot stops it",
         [&] { w.loeschen(1)->click(); },
         "LLLLL",
         MousePointer::Default,
         {stop()}},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.name);
        m_sound.calls.clear();
        s.action();
        QString captions;
        for (int k = 1; k <= 5; ++k)
            captions +=
                w.test(k)->text() == QStringLiteral("Stop") ? QLatin1Char('S') : QLatin1Char('L');
        EXPECT_EQ(captions, s.captions);
        EXPECT_EQ(w.mousePointer(), s.pointer);
        EXPECT_EQ(m_sound.calls, s.calls);
    }
}

TEST_F(Form1Slots, LoopGoesOnWhenAnotherEventIsSelected)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(13);
    assign(5, "horn.wav");
    w.test(5)->click();
    w.list3()->setCurrentRow(3); // row 5 disabled, its caption kept
    EXPECT_EQ(w.test(5)->text(), QStringLiteral("Stop"));
    EXPECT_FALSE(w.test(5)->isEnabled());
    EXPECT_EQ(m_sound.calls.count(stop()), 0);
}

TEST_F(Form1Slots, GroupPlaysAssignedSlotsInOrder)
{
    Form1 &w = window();
    struct Case
    {
        int event;
        std::vector<int> assignedSlots;
        QStringList expected;
    };
    const Case cases[] = {
        {0, {1, 3}, {QStringLiteral("wait:0.wav"), QStringLiteral("wait:2.wav")}},
        {3, {1}, {QStringLiteral("wait:12.wav")}},
        {19,
         {5, 1, 3, 2, 4},
         {QStringLiteral("wait:67.wav"), QStringLiteral("wait:68.wav"),
          QStringLiteral("wait:69.wav"), QStringLiteral("wait:70.wav"),
          QStringLiteral("wait:71.wav")}},
        {12, {}, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.event);
        w.list3()->setCurrentRow(c.event);
        for (const int k : c.assignedSlots)
            assign(k, "horn.wav");
        m_sound.calls.clear();
        MousePointer during = MousePointer::Default;
        m_sound.onWait = [&](const QString &) {
            during = w.mousePointer();
        };
        w.command2()->click();
        EXPECT_EQ(m_sound.calls, c.expected);
        if (!c.expected.isEmpty()) {
            EXPECT_EQ(during, MousePointer::ArrowHourglass);
        }
        EXPECT_EQ(w.mousePointer(), MousePointer::Default);
    }
}

TEST_F(Form1Slots, GroupLooksAtTheNamesNotTheBoxes)
{
    Form1 &w = window();
    assign(2, "horn.wav");
    w.list3()->setCurrentRow(1);
    w.list3()->setCurrentRow(0);
    w.slot(2)->setText(QString()); // a box emptied by other means changes nothing for the group
    m_sound.calls.clear();
    w.Command2_Click();
    EXPECT_EQ(m_sound.calls, QStringList{QStringLiteral("wait:1.wav")});
}

TEST_F(Form1Slots, GroupDuringALoopKeepsTheStopCaption)
{
    Form1 &w = window();
    assign(1, "horn.wav");
    w.test(1)->click();
    w.command2()->click();
    EXPECT_EQ(w.test(1)->text(), QStringLiteral("Stop"));
    EXPECT_EQ(w.mousePointer(), MousePointer::Default);
    // The next click runs the stop branch.
    m_sound.calls.clear();
    w.test(1)->click();
    EXPECT_EQ(m_sound.calls, QStringList{stop()});
    EXPECT_EQ(w.test(1)->text(), QStringLiteral("Loop"));
}

TEST_F(Form1Slots, FileListDoubleClickPlaysOnce)
{
    Form1 &w = window();
    assign(1, "horn.wav");
    w.test(1)->click();
    m_sound.calls.clear();
    selectInList1(QStringLiteral("Bell.WAV"));
    w.List1_DblClick();
    EXPECT_EQ(m_sound.calls,
              QStringList{QStringLiteral("once:") + QDir::cleanPath(soundFile("Bell.WAV"))});
    EXPECT_EQ(w.test(1)->text(), QStringLiteral("Stop")); // buttons and pointer untouched
    EXPECT_EQ(w.mousePointer(), MousePointer::ArrowHourglass);
}

} // namespace
} // namespace klangor::test
