#include "faketoolprocess.h"
#include "platform/toolprocess.h"
#include "programming/soundlist.h"
#include "support/fakes.h"
#include "support/fakeservices.h"
#include "support/standinfolder.h"
#include "ui/mainwindow.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>
#include <QTimer>

namespace klangor {
namespace {

using test::ScopedEnv;
using test::StandInFolder;

const QString Running = QString::fromUtf8("Programmierung läuft...");

// What the window showed at one moment during a run.
struct Snapshot
{
    QString status;
    bool barVisible = false;
    bool timerActive = false;
    int barValue = -1;
};

class Form1Programming : public ::testing::Test, public test::FakeServices
{
protected:
    void SetUp() override
    {
        m_folder.copyFromBin(QStringLiteral("cvdiesele.dat"));
        m_services = fakeServices(m_folder.folder(), m_sources.path());
        m_services.makeToolProcess = [] {
            return createSystemToolProcess();
        };
    }

    std::unique_ptr<Form1> makeWindow()
    {
        auto window = std::make_unique<Form1>(m_services);
        window->show();
        return window;
    }

    Snapshot snapshot(const Form1 &window) const
    {
        return {window.label2()->text(), window.progressBar1()->isVisible(),
                window.timer1()->isActive(), window.progressBar1()->value()};
    }

    // Does action once the tool has written its log line `marker` (it then sits in its wait).
    void whenLogShows(const QByteArray &marker, std::function<void()> action)
    {
        auto *poll = new QTimer(&m_guard);
        QObject::connect(poll, &QTimer::timeout, &m_guard, [this, poll, marker, action] {
            if (!m_folder.log().contains(marker))
                return;
            poll->stop();
            action();
        });
        poll->start(20);
    }

    StandInFolder m_folder;
    QTemporaryDir m_sources;
    Form1Services m_services;
    QObject m_guard;
};

TEST_F(Form1Programming, SoundToolRunsToItsEndWhileTheWindowStaysAlive)
{
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "1.5");
    ScopedEnv exitCode("KLANGOR_STANDIN_EXIT", "0");
    const auto window = makeWindow();

    // A sound in slot 1 of the first event: sound number 0.
    const QString wav = m_sources.filePath(QStringLiteral("Anfahren.wav"));
    ASSERT_TRUE(test::writeFile(wav, test::makeWav({})));
    window->Slot_OLEDragDrop(1, DropPayload{std::nullopt, {wav}});
    ASSERT_TRUE(window->slotFileNames().isAssigned(0));
    window->option(4)->click(); // Com2

    Snapshot during;
    QTimer::singleShot(700, window.get(), [&] { during = snapshot(*window); });
    QElapsedTimer clock;
    clock.start();
    window->command1()->click();
    const qint64 elapsed = clock.elapsed();

    EXPECT_GE(elapsed, 1400); // the click returned when the tool had ended
    EXPECT_EQ(during.status, Running);
    EXPECT_TRUE(during.barVisible);
    EXPECT_TRUE(during.timerActive);
    EXPECT_GT(during.barValue, 0); // ticks came through while the handler waited

    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmierung ist fertig!"));
    EXPECT_FALSE(window->progressBar1()->isVisible());
    EXPECT_FALSE(window->timer1()->isActive());
    EXPECT_GE(window->progressBar1()->value(), during.barValue);

    const QList<QByteArray> log = m_folder.log().split('\n');
    EXPECT_TRUE(log.contains("argv=sndburn.exe 2 soundlist.dat cvlist.dat"))
        << m_folder.log().constData();
    EXPECT_TRUE(log.contains("soundlist=ok 16MBit assigned=0"));
    EXPECT_TRUE(log.contains("exit=0"));
    EXPECT_EQ(test::readFile(m_folder.path(QStringLiteral("soundlist.dat"))),
              soundListBytes(window->slotFileNames(), 16));
    EXPECT_TRUE(m_messages.shown.isEmpty());
}

TEST_F(Form1Programming, SelectrixRunIsCancelledAndTheToolKilled)
{
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "2");
    const auto window = makeWindow();
    window->selectrix()->click();
    window->option(5)->click(); // Com3
    window->option(2)->click(); // 2 MBit

    Snapshot beforeCancel;
    whenLogShows("port=COM3", [&] {
        beforeCancel = snapshot(*window);
        window->abbrechen()->click();
    });
    QElapsedTimer clock;
    clock.start();
    window->command1()->click();
    EXPECT_LT(clock.elapsed(), 1900); // returned on the cancel, not at the tool's end

    EXPECT_EQ(beforeCancel.status, Running);
    EXPECT_TRUE(beforeCancel.barVisible);
    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(window->progressBar1()->isVisible());
    EXPECT_FALSE(window->timer1()->isActive());
    EXPECT_TRUE(m_folder.log().contains("argv=cvburn.exe 3 cvlist.dat\n"));
    EXPECT_EQ(test::readFile(m_folder.path(QStringLiteral("soundlist.dat"))),
              soundListBytes(SlotFileNames(), 2));

    // Had it lived, the tool would have logged its exit after 2 seconds.
    QTest::qWait(2500);
    EXPECT_FALSE(m_folder.log().contains("exit=")) << m_folder.log().constData();
    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmierung abgebrochen..."));
}

TEST_F(Form1Programming, MissingToolEndsTheRunAtOnce)
{
    ASSERT_TRUE(QFile::remove(m_folder.path(QStringLiteral("sndburn.exe"))));
    const auto window = makeWindow();
    QElapsedTimer clock;
    clock.start();
    window->command1()->click();
    EXPECT_LT(clock.elapsed(), 2000);
    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmiertool nicht gefunden!"));
    EXPECT_FALSE(window->progressBar1()->isVisible());
    EXPECT_FALSE(window->timer1()->isActive());
    EXPECT_TRUE(QFile::exists(m_folder.path(QStringLiteral("soundlist.dat"))));
}

TEST_F(Form1Programming, ClosingTheWindowDuringARunEndsTheProgramAndLeavesTheTool)
{
    ScopedEnv seconds("KLANGOR_STANDIN_SECONDS", "1.5");
    auto window = makeWindow();
    QTimer::singleShot(0, window.get(), [&] { window->command1()->click(); });
    whenLogShows("port=COM1", [&] { window->close(); });

    // As in main(): the application's loop, left when the last window closes.
    QElapsedTimer clock;
    clock.start();
    QApplication::exec();
    EXPECT_LT(clock.elapsed(), 1400); // did not wait for the tool
    EXPECT_FALSE(m_folder.log().contains("exit="));
    window.reset();

    // The tool was not stopped: it finishes its work on its own.
    while (!m_folder.log().contains("exit=") && clock.elapsed() < 10000)
        QTest::qWait(50);
    EXPECT_TRUE(m_folder.log().split('\n').contains("exit=0")) << m_folder.log().constData();
}

class Form1ProgrammingFake : public Form1Programming
{
protected:
    void SetUp() override
    {
        Form1Programming::SetUp();
        m_services.makeToolProcess = m_tools.factory();
    }
    test::FakeToolFactory m_tools;
};

TEST_F(Form1ProgrammingFake, SecondClickDuringARunStartsNoSecondTool)
{
    m_tools.script.finishAfterMs = 300;
    m_tools.script.exitCode = 258;
    const auto window = makeWindow();
    Snapshot afterSecondClick;
    QTimer::singleShot(50, window.get(), [&] {
        window->command1()->click();
        afterSecondClick = snapshot(*window);
    });
    window->command1()->click();

    EXPECT_EQ(m_tools.records.size(), 1);
    EXPECT_EQ(afterSecondClick.status, Running);
    EXPECT_TRUE(afterSecondClick.barVisible);
    EXPECT_TRUE(afterSecondClick.timerActive);
    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmierung ist fertig!"));
    EXPECT_FALSE(window->progressBar1()->isVisible());
}

TEST_F(Form1ProgrammingFake, AbbrechenWithoutRunOnlyResetsTheDisplay)
{
    const auto window = makeWindow();
    window->abbrechen()->click();
    EXPECT_TRUE(m_tools.records.isEmpty());
    EXPECT_EQ(window->label2()->text(), QStringLiteral("Programmierung abgebrochen..."));
    EXPECT_FALSE(window->progressBar1()->isVisible());
    EXPECT_FALSE(window->timer1()->isActive());
}

TEST_F(Form1ProgrammingFake, BarGoesOnFromWhereTheLastRunLeftIt)
{
    const auto window = makeWindow();
    for (int i = 0; i < 250; ++i)
        window->Timer1_Timer();
    EXPECT_EQ(window->progressBar1()->value(), 50);

    // The first event of the wait: the bar is up, no tick has come yet.
    m_tools.script.finishAfterMs = 100;
    Snapshot atStart;
    QTimer::singleShot(0, window.get(), [&] { atStart = snapshot(*window); });
    window->command1()->click();
    EXPECT_TRUE(atStart.barVisible);
    EXPECT_EQ(atStart.barValue, 50);
    EXPECT_GE(window->progressBar1()->value(), 50);
    EXPECT_FALSE(window->progressBar1()->isVisible());
}

} // namespace
} // namespace klangor
