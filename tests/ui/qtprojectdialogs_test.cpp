#include "ui/germanqttexts.h"
#include "ui/qtprojectdialogs.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QPushButton>
#include <QTimer>

namespace klangor {
namespace {

// The dialog is looked at and cancelled from inside its own event loop.
TEST(QtProjectDialogs, DialogShowsTitleFolderAndFilterAndReturnsNothingOnCancel)
{
    QStringList seen;
    QTimer poll;
    poll.callOnTimeout([&] {
        if (auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget())) {
            seen << dialog->windowTitle() << dialog->directory().absolutePath()
                 << dialog->nameFilters(); // shown without the pattern part:
            seen << (dialog->testOption(QFileDialog::HideNameFilterDetails) ? "hidden" : "shown");
            dialog->reject();
        }
    });
    poll.start(10);
    EXPECT_EQ(QtProjectDialogs().ShowOpenDialog({"*.spj (Sounds)", "*.spj"}, "Sound Projekt öffnen",
                                                QDir::tempPath()),
              QString());
    EXPECT_EQ(seen, QStringList({"Sound Projekt öffnen", QDir::tempPath(), "*.spj (Sounds) (*.spj)",
                                 "hidden"}));
}

TEST(QtProjectDialogs, QtsOwnButtonsSpeakGerman)
{
    ASSERT_TRUE(installGermanQtTexts()) << "Qt's German translations are missing";
    QDialogButtonBox buttons(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    EXPECT_EQ(buttons.button(QDialogButtonBox::Save)->text(), "Speichern");
    EXPECT_EQ(buttons.button(QDialogButtonBox::Cancel)->text(), "Abbrechen");
}

} // namespace
} // namespace klangor
