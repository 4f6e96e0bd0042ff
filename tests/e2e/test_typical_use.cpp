// An evening's work through the real window: browse, fill slots of two events, listen, save,
// clear, reopen, switch the locomotive type, program, and cancel a second run.
#include "platform/toolprocess.h"
#include "programming/soundlist.h"
#include "project/soundprojectfile.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/standinfolder.h"
#include "support/wavwriter.h"
#include "ui/mainwindow.h"
#include "ui/widgets.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTextEdit>
#include <QTimer>

namespace klangor::test {
namespace {

class TypicalUse : public ::testing::Test, public FakeServices
{
protected:
    void SetUp() override
    {
        for (const char *cv : {"cvdiesele.dat", "cvdampf.dat", "cvselectrix.dat"})
            m_folder.copyFromBin(QString::fromUtf8(cv));
        QFile::remove(m_folder.path(QStringLiteral("cvlist.dat"))); // written by the first save

        ASSERT_TRUE(QDir(m_sounds.path()).mkpath(QStringLiteral("Diesel")));
        WavSpec anfahren;
        anfahren.bitsPerSample = 16;
        anfahren.dataBytes = 40000;
        m_anfahren = makeWav(anfahren);
        WavSpec bremsen;
        bremsen.dataBytes = 7000;
        m_bremsen = makeWav(bremsen);
        WavSpec stereo;
        stereo.channels = 2;
        writeFile(diesel("anfahren.wav"), m_anfahren);
        writeFile(diesel("bremsen.WAV"), m_bremsen);
        writeFile(diesel("pfiff.wav"), makeWav({}));
        writeFile(diesel("stereo.wav"), makeWav(stereo));
        writeFile(diesel("liesmich.txt"), "Sounds der V 100");

        Form1Services services = fakeServices(m_folder.folder(), m_sounds.path());
        services.makeToolProcess = [] {
            return createSystemToolProcess();
        };
        m_window = std::make_unique<Form1>(services);
        m_window->show();
    }

    QString diesel(const char *name) const
    {
        return QDir(m_sounds.path()).filePath(QStringLiteral("Diesel/") + QString::fromUtf8(name));
    }
    QByteArray working(int n) const
    {
        return readFile(m_folder.path(QStringLiteral("%1.wav").arg(n)));
    }

    void pick(const char *name)
    {
        const auto items = m_window->list1()->findItems(QString::fromUtf8(name), Qt::MatchExactly);
        ASSERT_EQ(items.size(), 1) << name;
        m_window->list1()->setCurrentItem(items.first());
    }
    QStringList listed() const
    {
        QStringList names;
        for (int i = 0; i < m_window->list1()->count(); ++i)
            names << m_window->list1()->item(i)->text();
        return names;
    }

    StandInFolder m_folder;
    QTemporaryDir m_sounds;
    QByteArray m_anfahren, m_bremsen;
    std::unique_ptr<Form1> m_window;
};

TEST_F(TypicalUse, AnEveningWithOneLocomotive)
{
    Form1 &w = *m_window;

    // Browse into the folder of diesel sounds.
    ASSERT_TRUE(w.dir1()->setPath(m_sounds.path()));
    const auto folder = w.dir1()->findItems(QStringLiteral("Diesel"), Qt::MatchEndsWith);
    ASSERT_EQ(folder.size(), 1);
    emit w.dir1()->itemActivated(folder.first());
    EXPECT_EQ(listed(), (QStringList{QStringLiteral("anfahren.wav"), QStringLiteral("bremsen.WAV"),
                                     QStringLiteral("pfiff.wav"), QStringLiteral("stereo.wav")}));

    // Accelerating: slot 1 by double-click, slot 3 by dropping a file; a stereo file is refused.
    w.list3()->setCurrentRow(0);
    pick("anfahren.wav");
    w.slot(1)->doubleClicked();
    w.Slot_OLEDragDrop(3, DropPayload{std::nullopt, {diesel("bremsen.WAV")}});
    pick("stereo.wav");
    w.slot(2)->doubleClicked();
    ASSERT_EQ(m_messages.shown.size(), 1);
    EXPECT_EQ(m_messages.shown.first().text, QStringLiteral("Nur Mono Sounds sind erlaubt."));
    EXPECT_TRUE(w.slot(2)->text().isEmpty());

    // Manual sound 1: the whistle in slot 2 (sound number 38).
    w.list3()->setCurrentRow(13);
    pick("pfiff.wav");
    w.slot(2)->doubleClicked();

    EXPECT_EQ(w.slotFileNames().at(0), QStringLiteral("anfahren.wav"));
    EXPECT_EQ(w.slotFileNames().at(2), diesel("bremsen.WAV"));
    EXPECT_EQ(w.slotFileNames().at(38), QStringLiteral("pfiff.wav"));
    EXPECT_FALSE(w.slotFileNames().isAssigned(1));
    EXPECT_EQ(working(0), m_anfahren);
    EXPECT_EQ(working(2), m_bremsen);
    EXPECT_EQ(working(38), readFile(diesel("pfiff.wav")));

    // Listen to the whistle in a loop, then stop it.
    w.test(2)->click();
    EXPECT_EQ(w.test(2)->text(), QStringLiteral("Stop"));
    EXPECT_EQ(w.mousePointer(), MousePointer::ArrowHourglass);
    w.test(2)->click();
    EXPECT_EQ(w.test(2)->text(), QStringLiteral("Loop"));
    EXPECT_EQ(w.mousePointer(), MousePointer::Default);
    EXPECT_EQ(m_sound.calls,
              (QStringList{QStringLiteral("loop:") + m_folder.path(QStringLiteral("38.wav")),
                           QStringLiteral("stop")}));

    // Save under a name typed without extension: the first "Speichern" asks for it.
    w.cv()->setPlainText(w.cv()->toPlainText() + QStringLiteral("; meine V 100"));
    const QString cvText = w.cv()->toPlainText();
    const QString project = QDir(m_sounds.path()).filePath(QStringLiteral("V100"));
    m_dialogs.answers = {project};
    w.menuSpeichern()->trigger();
    EXPECT_EQ(w.projectPath(), project + QStringLiteral(".spj"));
    ASSERT_TRUE(QFile::exists(project + QStringLiteral(".spj")));
    QString savedCv = cvText;
    savedCv.replace(QStringLiteral("\n"), QStringLiteral("\r\n"));
    EXPECT_EQ(readFile(m_folder.path(QStringLiteral("cvlist.dat"))), savedCv.toLatin1());
    SoundProjectFile reader(m_folder.folder());
    const auto saved = reader.readProject(project + QStringLiteral(".spj"));
    ASSERT_TRUE(saved.ok());
    const ProjectRecords &records = saved.value().records;
    EXPECT_TRUE(records[0].name.endsWith(QStringLiteral("\\0.wav")));
    EXPECT_TRUE(records[1].name.endsWith(QStringLiteral("\\placeholder.dat")));
    EXPECT_EQ(records[38].data, readFile(diesel("pfiff.wav")));
    EXPECT_TRUE(records[89].name.endsWith(QStringLiteral("\\cvlist.dat")));

    // Change one's mind: another sound over slot 1, then clear two slots.
    w.list3()->setCurrentRow(0);
    pick("pfiff.wav");
    w.slot(1)->doubleClicked();
    EXPECT_EQ(working(0), readFile(diesel("pfiff.wav")));
    w.loeschen(1)->click();
    w.list3()->setCurrentRow(13);
    w.loeschen(2)->click();
    EXPECT_FALSE(w.slotFileNames().isAssigned(0));
    EXPECT_FALSE(w.slotFileNames().isAssigned(38));
    EXPECT_TRUE(QFile::exists(m_folder.path(QStringLiteral("38.wav")))); // left on disk
    w.cv()->setPlainText(QStringLiteral("verworfen"));

    // Reopen the project: names, sounds and CV list come back.
    m_dialogs.answers = {project + QStringLiteral(".spj")};
    w.menuOffnen()->trigger();
    EXPECT_EQ(w.slotFileNames().at(0), QStringLiteral("anfahren.wav"));
    EXPECT_EQ(w.slotFileNames().at(2), diesel("bremsen.WAV"));
    EXPECT_EQ(w.slotFileNames().at(38), QStringLiteral("pfiff.wav"));
    EXPECT_EQ(working(0), m_anfahren);
    EXPECT_EQ(w.slot(2)->text(), QStringLiteral("pfiff.wav")); // event 13 is still selected
    EXPECT_EQ(w.cv()->toPlainText(), cvText);
    EXPECT_EQ(w.projectPath(), project + QStringLiteral(".spj"));
    EXPECT_EQ(m_messages.shown.size(), 1); // only the stereo refusal so far

    // A steam engine after all: its default CV list.
    w.option(8)->click();
    w.command3()->click();
    EXPECT_EQ(w.cv()->toPlainText().toUtf8(),
              readFile(m_folder.path(QStringLiteral("cvdampf.dat"))).replace("\r\n", "\n"));

    // Program on Com2: the stand-in tool checks the sound list and the CV list.
    w.option(4)->click();
    {
        ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "0.5");
        w.command1()->click();
    }
    EXPECT_EQ(w.label2()->text(), QStringLiteral("Programmierung ist fertig!"));
    EXPECT_FALSE(w.progressBar1()->isVisible());
    EXPECT_FALSE(w.timer1()->isActive());
    EXPECT_EQ(readFile(m_folder.path(QStringLiteral("soundlist.dat"))),
              soundListBytes(w.slotFileNames(), 16));
    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("argv=sndburn.exe 2 soundlist.dat cvlist.dat"))
        << m_folder.log().constData();
    EXPECT_TRUE(log.contains("exit=0")) << m_folder.log().constData();

    // A second run, cancelled while the tool works.
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "5");
    QTimer poll;
    QString statusDuringRun;
    QObject::connect(&poll, &QTimer::timeout, &w, [&] {
        if (!m_folder.log().contains("port=COM2"))
            return;
        poll.stop();
        statusDuringRun = w.label2()->text();
        w.abbrechen()->click();
    });
    QFile::remove(m_folder.path(QStringLiteral("standin.log")));
    poll.start(20);
    QElapsedTimer clock;
    clock.start();
    w.command1()->click();
    EXPECT_LT(clock.elapsed(), 4500);
    EXPECT_EQ(statusDuringRun, QString::fromUtf8("Programmierung läuft..."));
    EXPECT_EQ(w.label2()->text(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(w.progressBar1()->isVisible());
    EXPECT_FALSE(w.timer1()->isActive());
    EXPECT_FALSE(m_folder.log().contains("exit="));
}

} // namespace
} // namespace klangor::test
