// The window's wiring: each control reaches the right core call, and its result the right
// control. What the core does with it is tested with the core.
#include "programming/cvlistfile.h"
#include "programming/faketoolprocess.h"
#include "programming/programmingrun.h"
#include "programming/soundlist.h"
#include "soundset/eventview.h"
#include "soundset/wavecheck.h"
#include "support/fakeservices.h"
#include "support/printers.h"
#include "support/wavwriter.h"
#include "ui/levelmatchdialog.h"
#include "ui/widgets.h"

#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFontInfo>
#include <QGuiApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QStyleOptionButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocumentFragment>
#include <QTextEdit>
#include <QTimer>
#include <sndfile.h>
#include <sys/stat.h>
#include <vector>

namespace klangor::test {
namespace {

// The window over a program folder with the CV default files, a sound folder with a good and
// a refused sound, fake services and fake tools that end at once unless told otherwise.
class MainWindow : public ::testing::Test, public FakeServices
{
protected:
    void SetUp() override
    {
        for (const QString cv : {"cvdiesele", "cvdampf", "cvselectrix"})
            writeFile(m_program.filePath(cv + ".dat"), "; " + cv.toLatin1());
        writeFile(soundFile("horn.wav"), makeWav({}));
        writeFile(soundFile("stereo.wav"), makeWav({.channels = 2}));
        m_services.programFolder = m_program.path();
        m_services.startFolder = m_sounds.path();
        m_services.makeToolProcess = m_tools.factory();
        m_window = std::make_unique<Form1>(m_services);
        m_window->show();
    }

    // Clicks "Sound programmieren" and waits until the run's tool has been asked for and ended.
    void program()
    {
        const qsizetype tools = m_tools.records.size();
        click("Command1");
        EXPECT_TRUE(QTest::qWaitFor([&] {
            return m_tools.records.size() > tools && !control("ProgressBar1")->isVisible();
        }));
    }
    void selectEvent(int event) { control<QListWidget>("List3")->setCurrentRow(event); }
    QString slotText(int k) const { return control<QLineEdit>(QString("Slot%1").arg(k))->text(); }
    QString soundFile(const QString &name) const { return m_sounds.filePath(name); }

    QTemporaryDir m_program, m_sounds;
    FakeToolFactory m_tools;
};

TEST_F(MainWindow, EventListSelectionShowsTheEventsSlots)
{
    assign(2, "horn.wav"); // event 0 is selected at start
    for (const int event : {4, 13, 19, 0}) {
        SCOPED_TRACE(event);
        selectEvent(event);
        const EventView view = eventViewFor(event, m_window->slotFileNames());
        EXPECT_EQ(control<QLabel>("Label1")->text(), view.caption);
        for (int k = 1; k <= Form1::SlotRows; ++k) {
            const SlotRowView &shown = view.rows[static_cast<std::size_t>(k - 1)];
            EXPECT_EQ(slotText(k), shown.text) << k;
            for (const QString &name : {QString("Slot%1").arg(k), QString("Test%1").arg(k),
                                        QString("Command%1").arg(k * 10)})
                EXPECT_EQ(control(name)->isEnabled(), shown.enabled) << name.toStdString();
        }
    }
    EXPECT_EQ(slotText(2), "horn.wav");
    // A Ctrl+click on the selected event leaves it selected.
    auto *events = control<QListWidget>("List3");
    QTest::mouseClick(events->viewport(), Qt::LeftButton, Qt::ControlModifier,
                      events->visualItemRect(events->item(0)).center());
    EXPECT_EQ(events->selectedItems(), QList{events->item(0)});
}

// In the window's font every event name, caption and status text fits its control at its
// size, and what a frame holds clears the frame's line.
TEST_F(MainWindow, EveryTextFitsItsControlInTheWindowsFont)
{
    auto *events = control<QListWidget>("List3");
    EXPECT_EQ(QFontInfo(control("Slot1")->font()).family(), Form1::WindowFontFamily);
    EXPECT_EQ(QFontInfo(events->font()).family(), Form1::NarrowFontFamily);
    EXPECT_EQ(events->horizontalScrollBar()->maximum(), 0); // no name is cut
    EXPECT_EQ(events->verticalScrollBar()->maximum(), 0);   // all 20 show
    auto *caption = control<QLabel>("Label1");
    for (int event = 0; event < events->count(); ++event) {
        selectEvent(event);
        EXPECT_LE(caption->heightForWidth(caption->width()), caption->height()) << event;
    }
    const auto *status = control<QLabel>("Label2");
    EXPECT_EQ(status->font().pointSizeF(), 18);
    const QStringList statusTexts = ProgrammingRun::statusTexts()
                                    << "CV-Datei \"cvdiesele.dat\" fehlt";
    for (const QString &text : statusTexts)
        EXPECT_LE(status->fontMetrics().horizontalAdvance(text), status->contentsRect().width())
            << text.toStdString();
    for (const QAbstractButton *button : m_window->findChildren<QAbstractButton *>()) {
        QStyleOptionButton option;
        option.initFrom(button);
        option.text = button->text();
        const auto contents = qobject_cast<const QRadioButton *>(button)
                                  ? QStyle::SE_RadioButtonContents
                                  : QStyle::SE_PushButtonContents;
        EXPECT_LE(button->fontMetrics().horizontalAdvance(button->text()),
                  button->style()->subElementRect(contents, &option, button).width())
            << button->objectName().toStdString();
    }
    for (const CaptionFrame *frame : m_window->findChildren<CaptionFrame *>()) {
        EXPECT_LT(frame->captionRect().right(), frame->width() - 2) << frame->title().toStdString();
        for (const QWidget *inside : frame->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
            EXPECT_GT(inside->y(), frame->lineTop() + 1) << inside->objectName().toStdString();
    }
}

// Under a real window manager the window offers no resize border and no maximize button. Runs
// on an X display (CI: xvfb-run with QT_QPA_PLATFORM=xcb), skipped offscreen.
TEST_F(MainWindow, WindowManagerOffersNeitherResizingNorMaximizing)
{
    if (QGuiApplication::platformName() != "xcb" ||
        QStandardPaths::findExecutable("openbox").isEmpty())
        GTEST_SKIP() << "needs an X display, openbox and xprop";
    QProcess manager;
    manager.start("openbox", {"--replace"});
    QByteArray actions;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            QProcess xprop;
            xprop.start("xprop",
                        {"-id", QString::number(m_window->winId()), "_NET_WM_ALLOWED_ACTIONS"});
            xprop.waitForFinished();
            actions = xprop.readAllStandardOutput();
            return actions.contains("_NET_WM_ACTION_CLOSE");
        },
        30000));
    EXPECT_FALSE(actions.contains("MAXIMIZE") || actions.contains("RESIZE")) << actions.constData();
    manager.terminate();
    manager.waitForFinished();
}

TEST(DriveListBox, LooksForNewDrivesWhenOpenedAndKeepsTheChosenOne)
{
    QStringList drives = {"/", "/media/a"};
    DriveListBox box([&] { return drives; });
    box.refresh();
    box.setCurrentIndex(1);
    drives = {"/", "/media/b", "/media/a"};
    box.refresh();
    EXPECT_EQ(box.count(), 3);
    EXPECT_EQ(box.currentText(), "/media/a");
}

// A sound to convert stands apart; every name shows whole in its tooltip, as plain text; a new
// listing keeps the selected name selected.
TEST(WaveFileListBox, SetsApartSoundsToConvertAndKeepsTheSelection)
{
    const QString longName = "ein Name, der länger ist als die Liste breit.ogg";
    WaveFileListBox list;
    list.setEntries({{"b.wav", false}, {longName, true}});
    list.setCurrentRow(1);
    list.setEntries({{"<b>a</b>.wav", false}, {"b.wav", false}, {longName, true}});
    EXPECT_EQ(list.selectedEntry(), longName);
    for (int row = 0; row < list.count(); ++row) {
        const QListWidgetItem *item = list.item(row);
        EXPECT_EQ(item->font().italic(), row == 2) << row;
        EXPECT_EQ(item->data(WaveFileListBox::NeedsConversionRole).toBool(), row == 2);
        EXPECT_TRUE(
            QTextDocumentFragment::fromHtml(item->toolTip()).toPlainText().startsWith(item->text()))
            << item->toolTip().toStdString();
    }
}

TEST_F(MainWindow, SlotDoubleClickAndDropAssignThroughTheCoreAndLoeschenEmpties)
{
    selectEvent(13); // slots 1..5 are sound numbers 37..41
    assign(2, "horn.wav");
    EXPECT_EQ(slotText(2), "horn.wav");
    EXPECT_EQ(m_window->slotFileNames().at(38), "horn.wav");

    assign(2, "stereo.wav"); // refused: the core says why, the box shows its name again
    EXPECT_EQ(slotText(2), "horn.wav");
    EXPECT_EQ(m_messages.shown,
              QList{WaveChecker(m_wave).CheckWaveFile(soundFile("stereo.wav")).error()});

    emit control<SlotBox>("Slot3")->dropped(DropPayload{std::nullopt, {soundFile("horn.wav")}});
    EXPECT_EQ(slotText(3), soundFile("horn.wav"));
    EXPECT_EQ(m_window->slotFileNames().at(39), soundFile("horn.wav"));

    click("Command20");
    EXPECT_TRUE(slotText(2).isEmpty());
    EXPECT_FALSE(m_window->slotFileNames().isAssigned(38));
    EXPECT_TRUE(m_window->slotFileNames().isAssigned(39));
}

TEST_F(MainWindow, ContextMenuConvertsTheFileForTheDecoderAndASlotTakesTheResult)
{
    writeFile(
        soundFile("studio.wav"),
        makeWav({.channels = 2, .sampleRate = 48000, .bitsPerSample = 16, .dataBytes = 96000}));
    m_window->Dir1_Change();
    auto *list = control<QListWidget>("List1");
    const QPoint at =
        list->visualItemRect(list->findItems("studio.wav", Qt::MatchExactly)[0]).center();
    QContextMenuEvent rightClick(QContextMenuEvent::Mouse, at, list->viewport()->mapToGlobal(at));
    QApplication::sendEvent(list->viewport(), &rightClick);
    auto *menu = control<QMenu>("List1Menu");
    ASSERT_TRUE(menu->isVisible());
    QTimer accept; // the dialog asks from its own event loop; 16 bits are preselected
    accept.callOnTimeout([] {
        if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget()))
            dialog->accept();
    });
    accept.start(10);
    QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(menu->actions()[0]).center());
    EXPECT_EQ(list->currentItem()->text(), "studio_decoder.wav");

    QTest::mouseDClick(control("Slot1"), Qt::LeftButton);
    EXPECT_EQ(m_window->slotFileNames().at(0), "studio_decoder.wav");
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

// A second of a tone in one of libsndfile's formats (most of them the program never writes).
void writeTone(const QString &path, int format = SF_FORMAT_OGG | SF_FORMAT_VORBIS,
               double amplitude = 0.3, int rate = 44100)
{
    SF_INFO info{0, rate, 1, format, 0, 0};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    std::vector<double> tone(static_cast<std::size_t>(rate));
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = amplitude * std::sin(static_cast<double>(i) / 5);
    sf_writef_double(file, tone.data(), static_cast<sf_count_t>(tone.size()));
    sf_close(file);
}

// A double-click on a slot with an Ogg file selected converts it beside the original and the
// slot takes the result; an output already there is replaced, kept beside a new name or left
// alone as the user answers.
TEST_F(MainWindow, SlotDoubleClickConvertsASoundFileAndAsksBeforeReplacingAnOutput)
{
    writeTone(soundFile("pfiff.ogg"));
    m_window->Dir1_Change();
    QString answer;
    QTimer answering; // the dialogs ask from their own event loops
    answering.callOnTimeout([&] {
        QWidget *modal = QApplication::activeModalWidget();
        if (auto *box = qobject_cast<QMessageBox *>(modal); box && !answer.isEmpty()) {
            for (QAbstractButton *button : box->buttons())
                if (button->text() == answer)
                    button->click();
        } else if (modal && modal->objectName() == "ConversionDialog") {
            qobject_cast<QDialog *>(modal)->accept();
        }
    });
    answering.start(10);
    const QByteArray mine = "not to be lost";
    struct Case
    {
        QString answer, slotText;
        bool replaced, dropped = false;
    };
    const Case cases[] = {
        {"", "pfiff_decoder.wav", true}, // nothing there: no question
        {"Ersetzen", "pfiff_decoder.wav", true},
        {"Neuer Name", "pfiff_decoder (2).wav", false},
        {"Abbrechen", "", false},
        {"Ersetzen", "pfiff_decoder.wav", true, true}, // a file manager's drop
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.answer.toStdString());
        click("Command10");
        QFile::remove(soundFile("pfiff_decoder (2).wav"));
        if (!c.answer.isEmpty())
            writeFile(soundFile("pfiff_decoder.wav"), mine);
        answer = c.answer;
        if (c.dropped) {
            emit control<SlotBox>("Slot1")->dropped({std::nullopt, {soundFile("pfiff.ogg")}});
            EXPECT_TRUE(QTest::qWaitFor([&] { return !slotText(1).isEmpty(); }));
        } else {
            assign(1, "pfiff.ogg");
        }
        EXPECT_EQ(slotText(1), c.slotText);
        EXPECT_EQ(m_window->slotFileNames().at(0), c.slotText);
        EXPECT_EQ(readFile(soundFile("pfiff_decoder.wav")) != mine, c.replaced);
        if (!c.slotText.isEmpty()) {
            EXPECT_EQ(readFile(m_program.filePath("0.wav")), readFile(soundFile(c.slotText)));
        }
        EXPECT_EQ(QFile::exists(soundFile("pfiff_decoder (2).wav")), c.answer == "Neuer Name");
    }
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

// A sound saved into the browsed folder by another program shows up, one deleted goes; a WAV
// file the check refuses is set apart with the check's reason once its header has been read.
TEST_F(MainWindow, FileListFollowsTheFolderOnDiskAndSetsApartRefusedWavs)
{
    auto *list = control<QListWidget>("List1");
    const auto listed = [list](const QString &name) {
        return !list->findItems(name, Qt::MatchExactly).isEmpty();
    };
    const auto toolTip = [list](const QString &name) {
        return QTextDocumentFragment::fromHtml(
                   list->findItems(name, Qt::MatchExactly).value(0)->toolTip())
            .toPlainText();
    };
    const QString refusal = WaveChecker(m_wave).CheckWaveFile(soundFile("stereo.wav")).error().text;
    EXPECT_TRUE(QTest::qWaitFor([&] { return toolTip("stereo.wav").contains(refusal); }, 10000));
    EXPECT_EQ(toolTip("horn.wav"), "horn.wav");
    writeTone(soundFile("neu.ogg"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return listed("neu.ogg"); }, 10000));
    ASSERT_TRUE(QFile::remove(soundFile("horn.wav")));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !listed("horn.wav"); }, 10000));
}

// "Lautstärke der Sounds angleichen...": the dialog plays a sound as it would become, and its
// "Angleichen" writes the working files as its plan shows them.
TEST_F(MainWindow, AngleichenPreviewsAndAppliesTheShownPlan)
{
    for (const auto &[name, amplitude] : {std::pair{"laut.wav", 0.5}, {"leise.wav", 0.02}})
        writeTone(soundFile(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, amplitude, 11025);
    m_window->Dir1_Change();
    assign(1, "laut.wav");
    selectEvent(1);
    assign(1, "leise.wav");
    std::map<int, QByteArray> expected;
    QTimer answering;
    answering.callOnTimeout([&] {
        auto *dialog = qobject_cast<LevelMatchDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        answering.stop();
        QTest::keyClick(dialog->findChild<QWidget *>("Ziel"), Qt::Key_Return); // applies nothing
        ASSERT_TRUE(dialog->isVisible());
        m_sound.calls.clear();
        dialog->findChild<QPushButton *>("Nachher")->click();
        const LevelMatchPlan &plan = dialog->plan();
        ASSERT_EQ(plan.sounds.size(), 2);
        EXPECT_EQ(readFile(m_sound.calls.value(0).mid(5)),
                  levelMatchedWave(m_program.path(), plan.sounds[0]).value());
        for (const LevelMatchSound &sound : plan.sounds) {
            EXPECT_NE(sound.gainDb, 0) << sound.name.toStdString();
            expected[sound.soundNumber] = levelMatchedWave(m_program.path(), sound).value();
        }
        dialog->findChild<QPushButton *>("Anwenden")->click();
    });
    answering.start(10);
    control<QAction>("Angleichen")->trigger();
    ASSERT_EQ(expected.size(), 2u);
    for (const auto &[number, bytes] : expected)
        EXPECT_EQ(readFile(m_program.filePath(QString("%1.wav").arg(number))), bytes) << number;
}

// Each step: a click, then the captions of Test1..Test5 and the sound calls; the pointer is busy
// while a loop plays.
TEST_F(MainWindow, PlaybackButtonsReachTheSoundService)
{
    selectEvent(13);
    assign(1, "horn.wav");
    assign(2, "horn.wav");
    const auto loop = [&](int n) {
        return "loop:" + m_program.filePath(QString("%1.wav").arg(n));
    };
    struct Step
    {
        const char *button, *captions;
        QStringList calls;
    };
    const Step steps[] = {
        {"Test3", "LLLLL", {}},         // an empty slot plays nothing
        {"Test1", "SLLLL", {loop(37)}}, // the slot's working file loops
        {"Test2", "LSLLL", {loop(38)}}, // another slot takes over
        {"Test2", "LLLLL", {"stop"}},   // the same button stops it
        {"Command2", "LLLLL", {"wait:37.wav", "wait:38.wav", "heard"}}, // the sounds in turn
        {"Test1", "SLLLL", {loop(37)}},                                 // loops again
        {"Command10", "LLLLL", {"stop"}}, // Löschen of a looping slot stops it
    };
    // The group is playing until its last sound has been heard.
    bool busyWhileHeard = false;
    m_sound.whileHeard = [&] {
        busyWhileHeard = m_window->cursor().shape() == Qt::BusyCursor;
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.button);
        m_sound.calls.clear();
        click(s.button);
        QString captions;
        for (int k = 1; k <= Form1::SlotRows; ++k)
            captions += control<QPushButton>(QString("Test%1").arg(k))->text().at(0);
        EXPECT_EQ(captions, s.captions);
        EXPECT_EQ(m_window->cursor().shape() == Qt::BusyCursor, captions.contains('S'));
        EXPECT_EQ(m_sound.calls, s.calls);
    }
    EXPECT_TRUE(busyWhileHeard);
}

// Every byte of a plain CV list leaves the box as it came, line ends as CR LF.
TEST_F(MainWindow, CvBoxKeepsEveryByteOfAPlainCvList)
{
    QByteArray bytes;
    for (int b = 0; b < 256; ++b)
        bytes += b == '\n' ? "\r\n" : b == '\r' ? "" : QByteArray(1, char(b));
    writeFile(m_program.filePath("cvdiesele.dat"), bytes);
    click("Command3");
    control<QAction>("Speichern")->trigger(); // writes cvlist.dat, then the name is not given
    EXPECT_EQ(readFile(m_program.filePath("cvlist.dat")).toHex(' ').toStdString(),
              bytes.toHex(' ').toStdString());
}

// A CV default file that cannot be read is named with the reason; the box keeps its text.
TEST_F(MainWindow, CvStandardwertLadenTellsWhyTheFileCannotBeRead)
{
    ASSERT_TRUE(QFile::remove(m_program.filePath("cvdampf.dat")));
    click("Option8");
    click("Command3");
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown[0].title, "CV Standardwert laden");
    EXPECT_EQ(m_messages.shown[0].text, loadCvText(m_program.filePath("cvdampf.dat")).error().text);
    EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), "; cvdiesele");
}

// The options are seen where they end up: the tool's command line, the sound list it is
// given, the CV box after "CV Standardwert laden".
TEST_F(MainWindow, OptionsReachTheToolAndTheCvBox)
{
    struct Case
    {
        QStringList clicks;
        QString commandLine, cv;
        int memoryMBit;
        bool eventsEnabled;
    };
    const Case cases[] = {
        {{}, "sndburn.exe 1", "; cvdiesele", 16, true},
        {{"Option2", "Option5", "Option8"}, "sndburn.exe 3", "; cvdampf", 2, true},
        {{"Option6", "Selectrix"}, "cvburn.exe 4", "; cvselectrix", 2, false},
        {{"Option1", "Option4", "Option7"}, "sndburn.exe 2", "; cvdiesele", 16, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.commandLine.toStdString());
        for (const QString &option : c.clicks + QStringList{"Command3"})
            click(option);
        program();
        ASSERT_FALSE(m_tools.records.isEmpty());
        const FakeToolRecord &tool = *m_tools.records.last();
        EXPECT_EQ(tool.commandLine.section(' ', 0, 1), c.commandLine);
        EXPECT_EQ(readFile(m_program.filePath("soundlist.dat")),
                  soundListBytes(SlotFileNames(), c.memoryMBit));
        EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), c.cv);
        EXPECT_EQ(control("List3")->isEnabled(), c.eventsEnabled);
    }
}

TEST_F(MainWindow, ProgrammingRunShowsOnStatusLineAndBarAndAbbrechenCancels)
{
    auto *status = control<QLabel>("Label2");
    auto *bar = control<QProgressBar>("ProgressBar1");
    m_tools.script.finishAfterMs = std::nullopt; // the test ends each tool itself
    m_tools.script.whileRunning = [&] {
        EXPECT_EQ(status->text(), "Programmierung läuft...");
        EXPECT_TRUE(bar->isVisible());
        EXPECT_TRUE(QSignalSpy(bar, &QProgressBar::valueChanged).wait()); // Timer1 moves the bar
        m_tools.latest->finish(0);
    };
    program();
    EXPECT_EQ(status->text(), "Programmierung ist fertig!");
    EXPECT_FALSE(bar->isVisible());
    EXPECT_FALSE(control<QTimer>("Timer1")->isActive());

    m_tools.script.whileRunning = [&] {
        click("Abbrechen");
        // Were the cancel lost, the tool ends well rather than keep the run waiting.
        QTimer::singleShot(0, m_tools.latest, [this] { m_tools.latest->finish(0); });
    };
    program();
    EXPECT_EQ(m_tools.records.last()->terminateCalls, 1);
    EXPECT_EQ(status->text(), "Programmierung abgebrochen...");
    EXPECT_FALSE(bar->isVisible());
}

// Com1..Com4 stay; a right click picks the adapter each leads to, the tooltip tells it, and a
// port the tool cannot reach is explained in a box.
TEST_F(MainWindow, ComButtonsChooseTheAdapterAndShowWhereTheyLead)
{
    QTemporaryDir root;
    ASSERT_TRUE(QDir().mkpath(root.filePath("serial/by-id")));
    for (const auto &[name, device] : {std::pair{"usb-A", "/dev/null"}, {"usb-B", "/dev/zero"}})
        ASSERT_TRUE(QFile::link(device, root.filePath(QString("serial/by-id/") + name)));
    // A file or a pipe put there is no adapter.
    writeFile(root.filePath("serial/by-id/usb-File"), "");
    ASSERT_EQ(mkfifo(QFile::encodeName(root.filePath("serial/by-id/usb-Pipe")), 0600), 0);
    m_window.reset();
    m_services.deviceRoot = root.path();
    SetUp();
    const auto toolTip = [this](const QString &button) {
        QHelpEvent hover(QEvent::ToolTip, {5, 5}, {});
        QApplication::sendEvent(control(button), &hover);
        // Shown as plain text: the device names are escaped into a paragraph.
        return QTextDocumentFragment::fromHtml(control(button)->toolTip())
            .toPlainText()
            .section('\n', 0, 0);
    };
    EXPECT_TRUE(toolTip("Option4").startsWith("Es sind 2 USB-Seriell-Adapter"));
    emit control("Option4")->customContextMenuRequested({5, 5});
    const QList<QAction *> offered = control<QMenu>("ComMenu")->actions();
    ASSERT_EQ(offered.size(), 3);
    EXPECT_EQ(offered[2]->text(), "usb-B (/dev/zero)");
    offered[2]->trigger();
    EXPECT_EQ(toolTip("Option4"), "Com2 → usb-B (/dev/zero)");

    m_tools.script.refuse = ToolProcess::StartError::PortUnavailable;
    m_tools.script.message = "Sie sind nicht in der Gruppe dialout";
    click("Option4");
    program();
    const ToolPort port = m_tools.records.last()->port;
    EXPECT_TRUE(port.number == 2 && port.device == "usb-B");
    EXPECT_EQ(m_messages.shown.value(0).text, m_tools.script.message);
    EXPECT_EQ(control<QLabel>("Label2")->text(), "Schnittstelle nicht bereit!");
}

} // namespace
} // namespace klangor::test
