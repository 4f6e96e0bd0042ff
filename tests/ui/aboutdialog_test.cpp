#include "platform/fakeplatform.h"
#include "ui/aboutdialog.h"
#include "ui/qtmessagepresenter.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QMessageBox>
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

// "Systeminformationen" starts an installed program, or the about box (which stays open) tells
// that there is none: the message is centred on it, and it has the keys again after OK.
TEST(AboutDialog, SysInfoStartsAnInstalledProgramOrTheBoxTellsThatThereIsNone)
{
    for (const bool installed : {true, false}) {
        FakeProgramLauncher launcher;
        launcher.installed = installed ? QStringList{"xfce4-taskmanager"} : QStringList{};
        QWidget window;
        QtMessagePresenter messages(&window);
        frmAbout box(&launcher, &messages, &window);
        window.show();
        box.show();
        QApplication::setActiveWindow(&box);
        QString shown;
        QWidget *owner = nullptr;
        QTimer::singleShot(0, &box, [&] {
            if (auto *message = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                owner = message->parentWidget();
                shown = message->windowTitle() + ": " + message->text();
                message->close();
            }
        });
        box.findChild<QPushButton *>("cmdSysInfo")->click();
        EXPECT_EQ(shown,
                  installed ? "" : "Klangor: Systeminformationen sind momentan nicht verfügbar");
        EXPECT_EQ(owner, installed ? nullptr : &box);
        EXPECT_TRUE(box.isVisible());
    }
}

} // namespace
} // namespace klangor::test
