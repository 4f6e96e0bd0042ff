#include "support/fakes.h"
#include "ui/aboutdialog.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QPushButton>
#include <QSignalSpy>

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

} // namespace
} // namespace klangor::test
