#include "platform/fakeplatform.h"
#include "ui/aboutdialog.h"
#include "ui/qtmessagepresenter.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>

namespace klangor::test {
namespace {

// The window forgets the box on "unloaded"; a box closed without it would be used after delete.
TEST(AboutDialog, OkUnloadsTheModelessBox)
{
    frmAbout box(nullptr, nullptr);
    box.show();
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr); // the main window stays usable
    QSignalSpy unloaded(&box, &frmAbout::unloaded);
    box.findChild<QPushButton *>("cmdOK")->click();
    EXPECT_EQ(unloaded.count(), 1);
    EXPECT_FALSE(box.isVisible());
}

TEST(AboutDialog, SysInfoStartsAnInstalledProgramOrTellsThatThereIsNone)
{
    const UserMessage unavailable("Systeminformationen sind momentan nicht verfügbar", "Klangor",
                                  MessageIcon::None);
    for (const bool installed : {true, false}) {
        FakeProgramLauncher launcher;
        launcher.installed = installed ? QStringList{"xfce4-taskmanager"} : QStringList{};
        RecordingMessages shown;
        frmAbout box(&launcher, &shown);
        box.show();
        box.findChild<QPushButton *>("cmdSysInfo")->click();
        EXPECT_EQ(shown.shown, installed ? QList<UserMessage>{} : QList{unavailable});
        EXPECT_TRUE(box.isVisible()); // whatever happened, the box stays open
    }
}

// The message belongs to the about box: centred on it, and it has the keys again after OK.
TEST(AboutDialog, SysInfoMessageIsTheAboutBoxs)
{
    QWidget window;
    QtMessagePresenter messages(&window);
    FakeProgramLauncher nothingInstalled;
    frmAbout box(&nothingInstalled, &messages, &window);
    window.show();
    box.show();
    QApplication::setActiveWindow(&box);
    QWidget *owner = nullptr;
    QTimer::singleShot(0, [&] {
        owner = QApplication::activeModalWidget()->parentWidget();
        QApplication::activeModalWidget()->close();
    });
    box.findChild<QPushButton *>("cmdSysInfo")->click();
    EXPECT_EQ(owner, &box);
}

} // namespace
} // namespace klangor::test
