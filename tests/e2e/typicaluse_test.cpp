// An evening's work through the real window: browse, fill slots, listen, save, change one's
// mind, reopen the project and program the decoder with the stand-in tool.
#include "platform/toolprocess.h"
#include "support/fakeservices.h"
#include "support/standinfolder.h"
#include "ui/widgets.h"

#include <gtest/gtest.h>
#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QTest>
#include <QTextEdit>

namespace klangor::test {
namespace {

class TypicalUse : public ::testing::Test, public FakeServices
{
protected:
    template <typename T = QAbstractButton> T *control(const char *name) const
    {
        return m_window->findChild<T *>(QString::fromLatin1(name));
    }
    // Picks name in the file list and double-clicks the slot box.
    void assign(const char *slot, const char *name)
    {
        auto *files = control<QListWidget>("List1");
        files->setCurrentItem(files->findItems(name, Qt::MatchExactly).value(0));
        QTest::mouseDClick(control<QWidget>(slot), Qt::LeftButton);
    }

    StandInFolder m_folder;
    QTemporaryDir m_sounds;
    std::unique_ptr<Form1> m_window;
};

TEST_F(TypicalUse, AnEveningWithOneLocomotive)
{
    m_folder.copyFromBin("cvdiesele.dat");
    const QString diesel = m_sounds.filePath("Diesel");
    ASSERT_TRUE(QDir().mkpath(diesel));
    writeFile(diesel + "/anfahren.wav", makeWav({.bitsPerSample = 16}));
    writeFile(diesel + "/pfiff.wav", makeWav({}));
    m_services.programFolder = m_folder.folder();
    m_services.startFolder = m_sounds.path();
    m_services.makeToolProcess = [] {
        return createSystemToolProcess({});
    };
    m_window = std::make_unique<Form1>(m_services);
    m_window->show();
    auto *folders = control<FolderListBox>("Dir1");
    emit folders->itemActivated(folders->findItems("Diesel", Qt::MatchEndsWith).value(0));

    // Accelerating (event 0): slot 1 by double-click, slot 3 by dropping a file; manual
    // sound 1: the whistle in slot 2, sound number 38.
    assign("Slot1", "anfahren.wav");
    emit control<SlotBox>("Slot3")->dropped(DropPayload{std::nullopt, {diesel + "/pfiff.wav"}});
    control<QListWidget>("List3")->setCurrentRow(13);
    assign("Slot2", "pfiff.wav");

    // Listen to the whistle in a loop, then stop it.
    control("Test2")->click();
    control("Test2")->click();
    EXPECT_EQ(m_sound.calls, QStringList({"loop:" + m_folder.path("38.wav"), "stop"}));

    // Save under a name typed without its extension, change one's mind, reopen.
    const QString cvText = control<QTextEdit>("CV")->toPlainText();
    m_dialogs.answers = {m_sounds.filePath("V100"), m_sounds.filePath("V100.spj")};
    control<QAction>("Speichern")->trigger();
    control("Command20")->click();
    control<QTextEdit>("CV")->setPlainText("verworfen");
    control<QAction>("Offnen")->trigger();
    EXPECT_EQ(control<QLineEdit>("Slot2")->text(), "pfiff.wav");
    EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), cvText);

    // Program on Com2: the stand-in tool checks the sound list, the sounds and the CV list.
    control("Option4")->click();
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "0");
    control("Command1")->click();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return control<QLabel>("Label2")->text() == "Programmierung ist fertig!"; }, 60000));
    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("argv=sndburn.exe 2 soundlist.dat cvlist.dat"))
        << log.join('\n').constData();
    EXPECT_TRUE(log.contains("soundlist=ok 16MBit assigned=0,2,38"));
    EXPECT_TRUE(log.contains("exit=0"));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace klangor::test
