// The window's wiring: each control reaches the right core call, and its result the right
// control. What the core does with it is tested with the core.
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "soundset/eventview.h"
#include "ui/widgets.h"
#include "windowfixture.h"

#include <QAction>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTextEdit>
#include <QTimer>

namespace klangor::test {

namespace {

using MainWindow = WindowFixture;

TEST_F(MainWindow, EventListSelectionShowsTheEventsSlots)
{
    assign(2, "horn.wav"); // event 0 is selected at start
    for (const int event : {4, 6, 13, 19, 0}) {
        SCOPED_TRACE(event);
        selectEvent(event);
        const EventView view = eventViewFor(event, m_window->slotFileNames());
        EXPECT_EQ(control<QLabel>("Label1")->text(), view.caption);
        for (int k = 1; k <= Form1::SlotRows; ++k) {
            const SlotRowView &shown = view.rows[static_cast<std::size_t>(k - 1)];
            EXPECT_EQ(slotText(k), shown.text) << k;
            for (const QString &name :
                 {QStringLiteral("Slot%1").arg(k), QStringLiteral("Test%1").arg(k),
                  QStringLiteral("Command%1").arg(k * 10)})
                EXPECT_EQ(control(name)->isEnabled(), shown.enabled) << name.toStdString();
        }
    }
    EXPECT_EQ(slotText(2), QStringLiteral("horn.wav"));
}

TEST_F(MainWindow, SlotDoubleClickAndDropAssignThroughTheCoreAndLoeschenEmpties)
{
    selectEvent(13); // slots 1..5 are sound numbers 37..41
    assign(2, "horn.wav");
    EXPECT_EQ(slotText(2), QStringLiteral("horn.wav"));
    EXPECT_EQ(m_window->slotFileNames().at(38), QStringLiteral("horn.wav"));
    EXPECT_EQ(readFile(programFile(QStringLiteral("38.wav"))), readFile(soundFile("horn.wav")));

    assign(2, "stereo.wav"); // refused: the core says why, the box shows its name again
    EXPECT_EQ(slotText(2), QStringLiteral("horn.wav"));
    EXPECT_EQ(m_messages.shown.size(), 1);

    emit control<SlotBox>("Slot3")->dropped(DropPayload{std::nullopt, {soundFile("horn.wav")}});
    EXPECT_EQ(slotText(3), soundFile("horn.wav"));
    EXPECT_EQ(m_window->slotFileNames().at(39), soundFile("horn.wav"));

    click("Command20");
    EXPECT_TRUE(slotText(2).isEmpty());
    EXPECT_FALSE(m_window->slotFileNames().isAssigned(38));
    EXPECT_TRUE(m_window->slotFileNames().isAssigned(39));
}

// Each step: a click, then the captions of Test1..Test5, a busy pointer, the sound calls.
TEST_F(MainWindow, PlaybackButtonsReachTheSoundService)
{
    selectEvent(13);
    assign(1, "horn.wav");
    assign(2, "horn.wav");
    const auto loop = [&](int n) {
        return QStringLiteral("loop:") + programFile(QStringLiteral("%1.wav").arg(n));
    };
    struct Step
    {
        const char *button;
        const char *captions;
        bool busy;
        QStringList calls;
    };
    const Step steps[] = {
        {"Test3", "LLLLL", false, {}}, // an empty slot plays nothing
        {"Test1", "SLLLL", true, {loop(37)}},
        {"Test2", "LSLLL", true, {loop(38)}},
        {"Test2", "LLLLL", false, {QStringLiteral("stop")}},
        {"Test1", "SLLLL", true, {loop(37)}},
        {"Command10", "LLLLL", false, {QStringLiteral("stop")}},
        {"Command2", "LLLLL", false, {QStringLiteral("wait:38.wav")}},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.button);
        m_sound.calls.clear();
        click(s.button);
        QString captions;
        for (int k = 1; k <= Form1::SlotRows; ++k)
            captions += control<QPushButton>(QStringLiteral("Test%1").arg(k))->text().at(0);
        EXPECT_EQ(captions, QString::fromLatin1(s.captions));
        EXPECT_EQ(m_window->cursor().shape() == Qt::BusyCursor, s.busy);
        EXPECT_EQ(soundCalls(), s.calls);
    }

    m_sound.calls.clear();
    auto *list = control<QListWidget>("List1");
    emit list->itemDoubleClicked(list->findItems(QStringLiteral("horn.wav"), Qt::MatchExactly)[0]);
    EXPECT_EQ(soundCalls(), QStringList{QStringLiteral("once:") + soundFile("horn.wav")});
}

TEST_F(MainWindow, MenuReachesTheProjectCommands)
{
    assign(1, "horn.wav");
    const QString saved = soundFile("V100.spj");
    const QString copy = soundFile("Kopie.spj");
    m_dialogs.answers = {soundFile("V100"), copy, saved};
    control<QAction>("Speichern")->trigger(); // asks for a name, which becomes the project's
    control<QAction>("Speichern")->trigger(); // saves under it
    control<QAction>("Speichernunter")->trigger();
    click("Command10");
    control<QAction>("Offnen")->trigger();
    ASSERT_EQ(m_dialogs.requests.size(), 3);
    EXPECT_TRUE(m_dialogs.requests[0].save && m_dialogs.requests[1].save);
    EXPECT_FALSE(m_dialogs.requests[2].save);
    EXPECT_TRUE(QFile::exists(saved) && QFile::exists(copy));
    EXPECT_EQ(slotText(1), QStringLiteral("horn.wav")); // the opened names reach the slots
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

// The options are seen where they end up: the tool's command line, the sound list it is
// given, the CV box after "CV Standardwert laden".
TEST_F(MainWindow, OptionsReachTheToolAndTheCvBox)
{
    struct Case
    {
        std::vector<const char *> clicks;
        QString program, port;
        int memoryMBit;
        QString cv;
        bool eventsEnabled;
    };
    const Case cases[] = {
        {{}, "sndburn.exe", "1", 16, "; cvdiesele", true},
        {{"Option2", "Option5", "Option8"}, "sndburn.exe", "3", 2, "; cvdampf", true},
        {{"Option6", "Selectrix"}, "cvburn.exe", "4", 2, "; cvselectrix", false},
        {{"Option1", "Option4", "Option7"}, "sndburn.exe", "2", 16, "; cvdiesele", true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.port.toStdString());
        for (const char *option : c.clicks)
            click(option);
        click("Command3");
        click("Command1");
        ASSERT_FALSE(m_tools.records.isEmpty());
        const FakeToolRecord &tool = *m_tools.records.last();
        EXPECT_EQ(tool.commandLine.section(' ', 0, 1), c.program + " " + c.port);
        EXPECT_EQ(readFile(programFile("soundlist.dat")),
                  soundListBytes(SlotFileNames(), c.memoryMBit));
        EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), c.cv);
        EXPECT_EQ(control("List3")->isEnabled(), c.eventsEnabled);
    }
}

TEST_F(MainWindow, ProgrammingRunShowsOnStatusLineAndBarAndAbbrechenCancels)
{
    auto *status = control<QLabel>("Label2");
    auto *bar = control<QProgressBar>("ProgressBar1");
    m_whileToolRuns = [&] {
        EXPECT_EQ(status->text(), QStringLiteral("Programmierung läuft..."));
        EXPECT_TRUE(bar->isVisible());
        QSignalSpy ticked(bar, &QProgressBar::valueChanged);
        EXPECT_TRUE(ticked.wait()); // Timer1 moves the bar
        endTool(0);
    };
    click("Command1");
    EXPECT_EQ(status->text(), QStringLiteral("Programmierung ist fertig!"));
    EXPECT_FALSE(bar->isVisible());
    EXPECT_FALSE(control<QTimer>("Timer1")->isActive());

    m_whileToolRuns = [&] {
        click("Abbrechen");
        // Were the cancel lost, the tool ends well rather than keep the run waiting.
        QMetaObject::invokeMethod(
            m_window.get(), [this] { endTool(0); }, Qt::QueuedConnection);
    };
    click("Command1");
    ASSERT_EQ(m_tools.records.size(), 2);
    EXPECT_EQ(m_tools.records[1]->terminateCalls, 1);
    EXPECT_EQ(status->text(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(bar->isVisible());
}

TEST_F(MainWindow, OpeningAFolderListsItsSounds)
{
    auto *folders = control<FolderListBox>("Dir1");
    const auto dampf = folders->findItems(QStringLiteral("Dampf"), Qt::MatchEndsWith);
    ASSERT_EQ(dampf.size(), 1);
    emit folders->itemActivated(dampf.first());
    auto *files = control<QListWidget>("List1");
    ASSERT_EQ(files->count(), 1);
    EXPECT_EQ(files->item(0)->text(), QStringLiteral("pfiff.wav"));
}

TEST_F(MainWindow, EndeClosesTheWindowWithoutAsking)
{
    control<QAction>("Ende")->trigger();
    EXPECT_FALSE(m_window->isVisible());
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace klangor::test
