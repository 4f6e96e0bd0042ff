#include "form1fixture.h"
#include "soundset/soundtable.h"
#include "ui/widgets.h"

#include <QAction>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QtEndian>
#include <QTextEdit>
#include <QTimer>

namespace klangor::test {

void Form1Fixture::selectInList1(const QString &name)
{
    const auto items = window().list1()->findItems(name, Qt::MatchExactly);
    ASSERT_EQ(items.size(), 1) << name.toStdString();
    window().list1()->setCurrentItem(items.first());
}

namespace {

using Form1Start = Form1Fixture;

QRect inClient(QWidget *w)
{
    QWidget *client = w->window()->findChild<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    auto *main = qobject_cast<QMainWindow *>(w->window());
    client = main ? main->centralWidget() : client;
    return QRect(w->mapTo(client, QPoint(0, 0)), w->size());
}

TEST_F(Form1Start, WindowShape)
{
    Form1 &w = window();
    EXPECT_EQ(w.windowTitle(), QStringLiteral("Klangor"));
    EXPECT_EQ(w.centralWidget()->size(), QSize(906, 573));
    EXPECT_FALSE(w.windowFlags() & Qt::WindowMaximizeButtonHint);
    EXPECT_TRUE(w.windowFlags() & Qt::WindowMinimizeButtonHint);
    EXPECT_EQ(w.centralWidget()->minimumSize(), w.centralWidget()->maximumSize()); // fixed border
}

TEST_F(Form1Start, StateAfterLoad)
{
    Form1 &w = window();
    EXPECT_EQ(w.comPort(), 1);
    EXPECT_EQ(w.memoryMBit(), 16);
    EXPECT_EQ(w.cvDefaultFile(), QStringLiteral("cvdiesele.dat"));
    EXPECT_TRUE(w.projectPath().isEmpty());
    for (int n = 0; n < SlotFileNames::Count; ++n)
        EXPECT_FALSE(w.slotFileNames().isAssigned(n));
    EXPECT_EQ(w.browseFolder(), QDir::cleanPath(m_sounds.path()));
    EXPECT_EQ(w.mousePointer(), MousePointer::Default);

    EXPECT_TRUE(w.option(1)->isChecked()); // 16 MBit
    EXPECT_FALSE(w.option(2)->isChecked());
    EXPECT_TRUE(w.option(3)->isChecked()); // Com1
    for (int n = 4; n <= 6; ++n)
        EXPECT_FALSE(w.option(n)->isChecked());
    EXPECT_TRUE(w.option(7)->isChecked()); // Diesel- /E-Lok
    EXPECT_FALSE(w.option(8)->isChecked());
    EXPECT_FALSE(w.selectrix()->isChecked());

    EXPECT_EQ(w.cv()->toPlainText(), QStringLiteral("; Diesel\n1=3\n"));
    EXPECT_TRUE(w.progressBar1()->isHidden());
    EXPECT_EQ(w.progressBar1()->value(), 0);
    EXPECT_FALSE(w.timer1()->isActive());
    EXPECT_EQ(w.timer1()->interval(), 100);
    EXPECT_TRUE(w.label2()->text().isEmpty());

    // Event list: all 20 events, unsorted, the first selected and shown.
    ASSERT_EQ(w.list3()->count(), 20);
    for (int e = 0; e < 20; ++e)
        EXPECT_EQ(w.list3()->item(e)->text(), SoundTable::text(e));
    EXPECT_EQ(w.list3()->currentRow(), 0);
    EXPECT_EQ(w.label1()->text(), QString::fromUtf8("Fahrgeräusch während Beschleunigung"));
    for (int k = 1; k <= 5; ++k) {
        EXPECT_EQ(w.slot(k)->isEnabled(), k <= 4) << k;
        EXPECT_EQ(w.test(k)->isEnabled(), k <= 4) << k;
        EXPECT_EQ(w.loeschen(k)->isEnabled(), k <= 4) << k;
        EXPECT_TRUE(w.slot(k)->text().isEmpty());
    }

    // File browser: WAV files of the start folder, sorted.
    QStringList listed;
    for (int i = 0; i < w.list1()->count(); ++i)
        listed << w.list1()->item(i)->text();
    EXPECT_EQ(listed, (QStringList{QStringLiteral("Bell.WAV"), QStringLiteral("horn.wav"),
                                   QStringLiteral("stereo.wav")}));
    EXPECT_GT(w.drive1()->count(), 0);
}

TEST_F(Form1Start, PlaceholderWaveImage)
{
    const QByteArray image = window().placeholderWave();
    ASSERT_EQ(image.size(), 60);
    const char *d = image.constData();
    EXPECT_EQ(image.mid(0, 4), "RIFF");
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 4), 50u);
    EXPECT_EQ(image.mid(8, 4), "WAVE");
    EXPECT_EQ(image.mid(12, 4), "fmt ");
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 16), 18u);
    EXPECT_EQ(qFromLittleEndian<quint16>(d + 20), 1u);
    EXPECT_EQ(qFromLittleEndian<quint16>(d + 22), 1u);
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 24), 22050u);
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 28), 22050u);
    EXPECT_EQ(qFromLittleEndian<quint16>(d + 32), 1u);
    EXPECT_EQ(qFromLittleEndian<quint16>(d + 34), 8u);
    EXPECT_EQ(qFromLittleEndian<quint16>(d + 36), 0u);
    EXPECT_EQ(image.mid(38, 4), "fact");
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 42), 4u);
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 46), 0u);
    EXPECT_EQ(image.mid(50, 4), "data");
    EXPECT_EQ(qFromLittleEndian<quint32>(d + 54), 0u);
    EXPECT_EQ(image.mid(58, 2), QByteArray(2, '\0'));
}

TEST_F(Form1Start, CaptionsAndPlaces)
{
    Form1 &w = window();
    struct Place
    {
        QWidget *widget;
        const char *caption;
        QRect rect;
    };
    const Place places[] = {
        {w.command2(), "Soundgruppe abspielen", {200, 304, 257, 33}},
        {w.command1(), "Sound programmieren", {192, 424, 177, 33}},
        {w.abbrechen(), "Abbrechen", {192, 464, 177, 33}},
        {w.command3(), "CV Standardwert laden", {616, 528, 161, 33}},
        {w.option(1), "16 MBit", {400, 400, 65, 17}},
        {w.option(2), "2 MBit", {400, 424, 65, 17}},
        {w.option(3), "Com1", {496, 400, 49, 17}},
        {w.option(4), "Com2", {496, 424, 49, 17}},
        {w.option(5), "Com3", {496, 448, 49, 17}},
        {w.option(6), "Com4", {496, 472, 49, 17}},
        {w.option(7), "Diesel- /E-Lok", {624, 456, 137, 17}},
        {w.option(8), "Dampf-Lok", {624, 480, 129, 17}},
        {w.selectrix(), "Selectrix", {624, 504, 81, 17}},
        {w.label2(), "", {200, 512, 393, 33}},
        {w.progressBar1(), "", {192, 552, 409, 17}},
        {w.list3(), "", {472, 80, 313, 277}},
        {w.label1(), "", {480, 32, 297, 33}},
        {w.cv(), "", {800, 24, 89, 537}},
        {w.drive1(), "", {16, 24, 161, 21}},
        {w.dir1(), "", {16, 48, 161, 186}},
        {w.list1(), "", {16, 240, 161, 316}},
    };
    for (const Place &p : places) {
        SCOPED_TRACE(p.caption);
        if (qobject_cast<QRadioButton *>(p.widget)) {
            // Options keep their place and may grow to fit their caption.
            EXPECT_EQ(inClient(p.widget).topLeft(), p.rect.topLeft());
            EXPECT_GE(inClient(p.widget).width(), p.rect.width());
            EXPECT_EQ(inClient(p.widget).height(), p.rect.height());
        } else {
            EXPECT_EQ(inClient(p.widget), p.rect);
        }
        if (auto *button = qobject_cast<QAbstractButton *>(p.widget)) {
            EXPECT_EQ(button->text(), QString::fromUtf8(p.caption));
        }
    }
    for (int k = 1; k <= 5; ++k) {
        SCOPED_TRACE(k);
        const int top = 24 + 56 * (k - 1);
        EXPECT_EQ(inClient(w.slot(k)), QRect(208, top + 16, 137, 25));
        EXPECT_EQ(inClient(w.test(k)), QRect(344, top + 16, 41, 25));
        EXPECT_EQ(inClient(w.loeschen(k)), QRect(392, top + 16, 57, 25));
        EXPECT_EQ(w.test(k)->text(), QStringLiteral("Loop"));
        EXPECT_EQ(w.loeschen(k)->text(), QString::fromUtf8("Löschen"));
        auto *frame = qobject_cast<QGroupBox *>(w.slot(k)->parentWidget());
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->title(), QStringLiteral("Slot %1").arg(k));
    }

    QStringList frames;
    for (QGroupBox *box :
         w.centralWidget()->findChildren<QGroupBox *>(QString(), Qt::FindDirectChildrenOnly))
        frames << box->title();
    EXPECT_EQ(frames,
              (QStringList{QStringLiteral("Sounds"), QStringLiteral("Slots"),
                           QString::fromUtf8("Qualität"), QStringLiteral("Serielle Schnittstelle"),
                           QStringLiteral("Sound Definition"), QStringLiteral("CV Daten"),
                           QStringLiteral("Speicherbelegung")}));
}

TEST_F(Form1Start, Menu)
{
    Form1 &w = window();
    const QList<QAction *> bar = w.menuBar()->actions();
    ASSERT_EQ(bar.size(), 2);
    EXPECT_EQ(bar[0]->text(), QStringLiteral("&Datei"));
    EXPECT_EQ(bar[1]->text(), QStringLiteral("&Info"));
    EXPECT_EQ(bar[1]->menu(), nullptr); // the entry itself is the command
    ASSERT_NE(bar[0]->menu(), nullptr);
    QStringList items;
    for (QAction *a : bar[0]->menu()->actions()) {
        items << (a->isSeparator() ? QStringLiteral("-") : a->text());
        EXPECT_TRUE(a->shortcut().isEmpty());
    }
    EXPECT_EQ(items, (QStringList{QString::fromUtf8("Öff&nen"), QStringLiteral("&Speichern"),
                                  QStringLiteral("Speicher unter..."), QStringLiteral("-"),
                                  QStringLiteral("&Ende")}));
}

TEST_F(Form1Start, EventViewFollowsTheSelection)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(4);
    EXPECT_EQ(w.label1()->text(),
              QString::fromUtf8("Pausenfößller zu 4 bis 7 (Zischen zwischen Dampfstößen)"));
    for (int k = 1; k <= 5; ++k)
        EXPECT_EQ(w.slot(k)->isEnabled(), k == 1) << k;

    w.list3()->setCurrentRow(13);
    for (int k = 1; k <= 5; ++k)
        EXPECT_TRUE(w.test(k)->isEnabled()) << k;
    w.list3()->setCurrentRow(6);
    for (int k = 1; k <= 5; ++k)
        EXPECT_EQ(w.loeschen(k)->isEnabled(), k <= 3) << k;
}

TEST_F(Form1Start, NamesComeBackWhenTheEventIsSelectedAgain)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(0);
    selectInList1(QStringLiteral("horn.wav"));
    w.Slot_DblClick(4);
    ASSERT_EQ(w.slot(4)->text(), QStringLiteral("horn.wav"));
    w.list3()->setCurrentRow(3); // one slot: rows 2..5 emptied
    EXPECT_TRUE(w.slot(4)->text().isEmpty());
    EXPECT_EQ(w.slotFileNames().at(3), QStringLiteral("horn.wav"));
    w.list3()->setCurrentRow(0);
    EXPECT_EQ(w.slot(4)->text(), QStringLiteral("horn.wav"));
}

TEST_F(Form1Start, MemoryAndPortOptions)
{
    Form1 &w = window();
    w.option(2)->click();
    w.option(5)->click();
    EXPECT_EQ(w.memoryMBit(), 2);
    EXPECT_EQ(w.comPort(), 3);
    EXPECT_FALSE(w.option(1)->isChecked());
    EXPECT_FALSE(w.option(3)->isChecked());
    // The port group and the memory group do not disturb each other.
    EXPECT_TRUE(w.option(2)->isChecked());
    w.option(6)->click();
    w.option(1)->click();
    EXPECT_EQ(w.comPort(), 4);
    EXPECT_EQ(w.memoryMBit(), 16);
    EXPECT_TRUE(w.option(7)->isChecked());
}

TEST_F(Form1Start, LocomotiveTypesAndDefaultCvLists)
{
    Form1 &w = window();
    w.option(8)->click(); // Dampf-Lok alone leaves the box as it is
    EXPECT_EQ(w.cvDefaultFile(), QStringLiteral("cvdampf.dat"));
    EXPECT_EQ(w.cv()->toPlainText(), QStringLiteral("; Diesel\n1=3\n"));
    w.cv()->setPlainText(QStringLiteral("edited"));
    w.command3()->click(); // discards the edits
    EXPECT_EQ(w.cv()->toPlainText(), QStringLiteral("; Dampf\n1=4\n"));

    w.selectrix()->click();
    EXPECT_EQ(w.cvDefaultFile(), QStringLiteral("cvselectrix.dat"));
    w.command3()->click();
    EXPECT_EQ(w.cv()->toPlainText(), QStringLiteral("; Selectrix\n1=5\n"));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(Form1Start, SelectrixLocksTheSoundSetAndDieselUnlocksIt)
{
    Form1 &w = window();
    w.list3()->setCurrentRow(3);
    selectInList1(QStringLiteral("horn.wav"));
    w.Slot_DblClick(1);
    w.selectrix()->click();
    EXPECT_FALSE(w.list3()->isEnabled());
    for (int k = 1; k <= 5; ++k) {
        EXPECT_FALSE(w.slot(k)->isEnabled());
        EXPECT_FALSE(w.test(k)->isEnabled());
        EXPECT_FALSE(w.loeschen(k)->isEnabled());
    }
    EXPECT_EQ(w.slot(1)->text(), QStringLiteral("horn.wav")); // texts stay visible
    EXPECT_TRUE(w.command2()->isEnabled());
    EXPECT_TRUE(w.command1()->isEnabled());

    w.option(7)->click();
    EXPECT_TRUE(w.list3()->isEnabled());
    for (int k = 1; k <= 5; ++k)
        EXPECT_EQ(w.slot(k)->isEnabled(), k == 1) << k;
    EXPECT_EQ(w.cvDefaultFile(), QStringLiteral("cvdiesele.dat"));
}

TEST_F(Form1Start, MissingDefaultCvFileKeepsTheBoxAndSaysSo)
{
    Form1 &w = window();
    QFile::remove(programFile("cvdampf.dat"));
    w.option(8)->click();
    w.command3()->click();
    EXPECT_EQ(w.cv()->toPlainText(), QStringLiteral("; Diesel\n1=3\n"));
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_TRUE(m_messages.shown.first().text.contains(QStringLiteral("cvdampf.dat")));
}

TEST_F(Form1Start, OpensWithoutTheDieselCvFile)
{
    QFile::remove(programFile("cvdiesele.dat"));
    Form1 &w = window();
    EXPECT_TRUE(w.cv()->toPlainText().isEmpty());
    EXPECT_TRUE(w.label2()->text().contains(QStringLiteral("cvdiesele.dat")));
}

TEST_F(Form1Start, FolderChangesRelistTheFiles)
{
    Form1 &w = window();
    ASSERT_TRUE(QDir(m_sounds.path()).mkdir(QStringLiteral("Dampf")));
    writeFile(m_sounds.filePath(QStringLiteral("Dampf/pfiff.wav")), makeWav({}));
    ASSERT_TRUE(QDir(m_sounds.path()).mkdir(QStringLiteral("leer")));

    ASSERT_TRUE(w.dir1()->setPath(m_sounds.filePath(QStringLiteral("Dampf"))));
    EXPECT_EQ(w.browseFolder(), QDir::cleanPath(m_sounds.filePath(QStringLiteral("Dampf"))));
    ASSERT_EQ(w.list1()->count(), 1);
    EXPECT_EQ(w.list1()->item(0)->text(), QStringLiteral("pfiff.wav"));

    ASSERT_TRUE(w.dir1()->setPath(m_sounds.filePath(QStringLiteral("leer"))));
    EXPECT_EQ(w.list1()->count(), 0);

    // A folder that cannot be opened leaves the browser where it was.
    EXPECT_FALSE(w.dir1()->setPath(m_sounds.filePath(QStringLiteral("missing"))));
    EXPECT_EQ(w.browseFolder(), QDir::cleanPath(m_sounds.filePath(QStringLiteral("leer"))));

    // The folder list shows the open path, then the folders inside it; opening one lists it.
    ASSERT_TRUE(w.dir1()->setPath(m_sounds.path()));
    const auto found = w.dir1()->findItems(QStringLiteral("Dampf"), Qt::MatchEndsWith);
    ASSERT_EQ(found.size(), 1);
    emit w.dir1()->itemActivated(found.first());
    EXPECT_EQ(w.list1()->count(), 1);
}

TEST_F(Form1Start, DriveThatCannotBeReadIsIgnored)
{
    Form1 &w = window();
    const QString before = w.browseFolder();
    w.drive1()->addItem(QStringLiteral("/no/such/drive"));
    w.drive1()->setCurrentIndex(w.drive1()->count() - 1);
    w.Drive1_Change();
    EXPECT_EQ(w.browseFolder(), before);
    EXPECT_EQ(w.list1()->count(), 3);
}

TEST_F(Form1Start, FileListEntriesAreDraggedAsTheirBareName)
{
    Form1 &w = window();
    selectInList1(QStringLiteral("horn.wav"));
    const QModelIndexList picked{w.list1()->currentIndex()};
    std::unique_ptr<QMimeData> mime(w.list1()->model()->mimeData(picked));
    ASSERT_NE(mime, nullptr);
    EXPECT_EQ(mime->text(), QStringLiteral("horn.wav"));
    EXPECT_FALSE(mime->hasUrls());
    // Dropped on a slot it takes the text way.
    w.Slot_OLEDragDrop(1, dropPayloadFrom(*mime));
    EXPECT_EQ(w.slotFileNames().at(0), QStringLiteral("horn.wav"));
}

TEST_F(Form1Start, EndeClosesTheWindowWithoutAsking)
{
    Form1 &w = window();
    w.show();
    ASSERT_TRUE(w.isVisible());
    w.menuEnde()->trigger();
    EXPECT_FALSE(w.isVisible());
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace klangor::test
