// An evening's work through the real window: browse, fill slots, listen, save, change one's
// mind, reopen the project and program the decoder with the stand-in tool.
#include "platform/toolprocess.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/standinfolder.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"
#include "ui/widgets.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

namespace klangor::test {
namespace {

class TypicalUse : public ::testing::Test, public FakeServices
{
protected:
    void SetUp() override
    {
        m_folder.copyFromBin(QStringLiteral("cvdiesele.dat"));
        ASSERT_TRUE(QDir(m_sounds.path()).mkpath(QStringLiteral("Diesel")));
        WavSpec sixteenBit;
        sixteenBit.bitsPerSample = 16;
        m_anfahren = makeWav(sixteenBit);
        m_pfiff = makeWav({});
        writeFile(diesel("anfahren.wav"), m_anfahren);
        writeFile(diesel("pfiff.wav"), m_pfiff);

        WindowServices services = fakeServices(m_folder.folder(), m_sounds.path());
        services.makeToolProcess = [] {
            return createSystemToolProcess();
        };
        m_window = std::make_unique<Form1>(services);
        m_window->show();
    }

    template <typename T = QWidget> T *control(const char *name) const
    {
        return m_window->findChild<T *>(QString::fromLatin1(name));
    }
    void click(const char *name) { control<QAbstractButton>(name)->click(); }
    void trigger(const char *menuEntry) { control<QAction>(menuEntry)->trigger(); }
    // Picks name in the file list and double-clicks the slot box.
    void assign(const char *slot, const char *name)
    {
        auto *files = control<QListWidget>("List1");
        files->setCurrentItem(files->findItems(QString::fromUtf8(name), Qt::MatchExactly).value(0));
        QTest::mouseDClick(control(slot), Qt::LeftButton);
    }
    QString diesel(const char *name) const
    {
        return m_sounds.filePath(QStringLiteral("Diesel/") + QString::fromUtf8(name));
    }
    QByteArray working(int n) const
    {
        return readFile(m_folder.path(QStringLiteral("%1.wav").arg(n)));
    }

    StandInFolder m_folder;
    QTemporaryDir m_sounds;
    QByteArray m_anfahren, m_pfiff;
    std::unique_ptr<Form1> m_window;
};

TEST_F(TypicalUse, AnEveningWithOneLocomotive)
{
    auto *folders = control<FolderListBox>("Dir1");
    emit folders->itemActivated(
        folders->findItems(QStringLiteral("Diesel"), Qt::MatchEndsWith).value(0));

    // Accelerating (event 0): slot 1 by double-click, slot 3 by dropping a file.
    assign("Slot1", "anfahren.wav");
    emit control<SlotBox>("Slot3")->dropped(DropPayload{std::nullopt, {diesel("pfiff.wav")}});
    // Manual sound 1: the whistle in slot 2, sound number 38.
    control<QListWidget>("List3")->setCurrentRow(13);
    assign("Slot2", "pfiff.wav");
    EXPECT_EQ(working(0), m_anfahren);
    EXPECT_EQ(working(2), m_pfiff);
    EXPECT_EQ(working(38), m_pfiff);

    // Listen to the whistle in a loop, then stop it.
    click("Test2");
    click("Test2");
    ASSERT_EQ(m_sound.calls.size(), 2);
    EXPECT_EQ(m_sound.calls[0], QStringLiteral("loop:") + m_folder.path(QStringLiteral("38.wav")));
    EXPECT_EQ(control<QPushButton>("Test2")->text(), QStringLiteral("Loop"));

    // Save under a name typed without its extension.
    const QString cvText = control<QTextEdit>("CV")->toPlainText();
    const QString project = m_sounds.filePath(QStringLiteral("V100"));
    m_dialogs.answers = {project};
    trigger("Speichern");
    ASSERT_TRUE(QFile::exists(project + QStringLiteral(".spj")));

    // Change one's mind: clear the whistle, another sound over slot 1, the CV box edited.
    click("Command20");
    control<QListWidget>("List3")->setCurrentRow(0);
    assign("Slot1", "pfiff.wav");
    EXPECT_EQ(working(0), m_pfiff);
    control<QTextEdit>("CV")->setPlainText(QStringLiteral("verworfen"));

    // Reopen the project: names, sounds and CV list come back.
    m_dialogs.answers = {project + QStringLiteral(".spj")};
    trigger("Offnen");
    EXPECT_EQ(control<QLineEdit>("Slot1")->text(), QStringLiteral("anfahren.wav"));
    EXPECT_EQ(working(0), m_anfahren);
    EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), cvText);
    control<QListWidget>("List3")->setCurrentRow(13);
    EXPECT_EQ(control<QLineEdit>("Slot2")->text(), QStringLiteral("pfiff.wav"));

    // Program on Com2: the stand-in tool checks the sound list, the sounds and the CV list.
    click("Option4");
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "0");
    click("Command1");
    EXPECT_EQ(control<QLabel>("Label2")->text(), QStringLiteral("Programmierung ist fertig!"));
    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("argv=sndburn.exe 2 soundlist.dat cvlist.dat"))
        << m_folder.log().constData();
    EXPECT_TRUE(log.contains("soundlist=ok 16MBit assigned=0,2,38"));
    EXPECT_TRUE(log.contains("exit=0"));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace klangor::test
