#include "support/fakes.h"
#include "ui/aboutdialog.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

namespace klangor {
namespace {

QPushButton *button(const frmAbout &box, const char *name)
{
    return box.findChild<QPushButton *>(QString::fromLatin1(name));
}

TEST(AboutDialog, EveryWayOfClosingUnloadsTheBox)
{
    const std::function<void(frmAbout &)> ways[] = {
        [](frmAbout &box) { button(box, "cmdOK")->click(); },
        [](frmAbout &box) { QTest::keyClick(&box, Qt::Key_Escape); },
        [](frmAbout &box) { box.close(); },
    };
    for (const auto &closeIt : ways) {
        frmAbout box(nullptr, nullptr);
        box.show();
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr); // the main window stays usable
        QSignalSpy unloaded(&box, &frmAbout::unloaded);
        closeIt(box);
        EXPECT_EQ(unloaded.count(), 1);
        EXPECT_FALSE(box.isVisible());
    }
}

TEST(AboutDialog, SysInfoStartsAnInstalledProgramOrTellsThatThereIsNone)
{
    const UserMessage unavailable(
        QStringLiteral("Systeminformationen sind momentan nicht verfügbar"),
        QStringLiteral("Klangor"), MessageIcon::None);
    const std::pair<QStringList, QList<UserMessage>> cases[] = {
        {{QStringLiteral("xfce4-taskmanager")}, {}},
        {{}, {unavailable}},
    };
    for (const auto &[installed, messages] : cases) {
        test::FakeProgramLauncher launcher;
        launcher.installed = installed;
        test::RecordingMessages shown;
        frmAbout box(&launcher, &shown);
        box.show();
        button(box, "cmdSysInfo")->click();
        EXPECT_EQ(shown.shown, messages);
        EXPECT_TRUE(box.isVisible()); // whatever happened, the box stays open
    }
    test::RecordingMessages shown;
    frmAbout withoutLauncher(nullptr, &shown);
    button(withoutLauncher, "cmdSysInfo")->click();
    EXPECT_EQ(shown.shown, QList<UserMessage>{unavailable});
}

} // namespace
} // namespace klangor
