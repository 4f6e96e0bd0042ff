// An evening's work through the real window: browse, fill slots, save, change one's mind,
// reopen the project and program the decoder with the stand-in tool.
#include "platform/toolprocess.h"
#include "support/fakeservices.h"
#include "support/standinfolder.h"
#include "ui/widgets.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QLabel>
#include <QTest>
#include <QTextEdit>

namespace klangor::test {
namespace {

class TypicalUse : public ::testing::Test, public FakeServices
{
protected:
    StandInFolder m_folder;
    QTemporaryDir m_sounds;
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
    assign(1, "anfahren.wav");
    emit control<SlotBox>("Slot3")->dropped(DropPayload{std::nullopt, {diesel + "/pfiff.wav"}});
    control<QListWidget>("List3")->setCurrentRow(13);
    assign(2, "pfiff.wav");

    // "Speichern unter" a name typed without its extension, change one's mind, reopen.
    const QString cvText = control<QTextEdit>("CV")->toPlainText();
    m_dialogs.answers = {m_sounds.filePath("V100"), m_sounds.filePath("V100.spj")};
    control<QAction>("Speichernunter")->trigger();
    click("Command20");
    control<QTextEdit>("CV")->setPlainText("verworfen");
    control<QAction>("Offnen")->trigger();
    EXPECT_EQ(control<QLineEdit>("Slot2")->text(), "pfiff.wav");
    EXPECT_EQ(control<QTextEdit>("CV")->toPlainText(), cvText);

    // Program: the stand-in tool checks the sound list, the sounds and the CV list.
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "0");
    click("Command1");
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return control<QLabel>("Label2")->text() == "Programmierung ist fertig!"; }, 60000));
    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("soundlist=ok 16MBit assigned=0,2,38")) << log.join('\n').data();
    EXPECT_TRUE(log.contains("exit=0"));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

} // namespace
} // namespace klangor::test
