#include "support/wavwriter.h"
#include "ui/germanqttexts.h"
#include "ui/qtprojectdialogs.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGuiApplication>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QMimeDatabase>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
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

// Typed "neu", Enter: the save dialog asks before it creates neu.spj, and before it replaces a
// file; "Nein" goes back to it. Runs under openbox on an X display in CI, offscreen otherwise.
TEST(QtProjectDialogs, SaveAsksBeforeCreatingOrReplacingUnderAWindowManager)
{
    QProcess manager; // ends with the test
    if (QGuiApplication::platformName() == "xcb")
        manager.start("openbox", {"--replace"});
    QTemporaryDir folder;
    ASSERT_TRUE(test::writeFile(folder.filePath("alt.spj"), "alt"));
    const QString create = "„%1“ ist nicht vorhanden.\nSoll die Datei erstellt werden?";
    const QString replace = "„alt.spj“ ist bereits vorhanden.\nSoll die Datei ersetzt werden?";
    const auto no = QMessageBox::No, yes = QMessageBox::Yes;
    const struct Case
    {
        QString typed;
        QList<QMessageBox::StandardButton> answers; // then the dialog is cancelled
        QStringList questions;
        QString chosen;
    } cases[] = {
        {"neu", {no, yes}, {create.arg("neu.spj"), create.arg("neu.spj")}, folder.filePath("neu")},
        {"ALT.SPJ", {no}, {create.arg("ALT.SPJ")}, ""},
        {"alt", {yes}, {replace}, folder.filePath("alt")},
    };
    for (Case c : cases) {
        QStringList questions;
        bool typing = false;
        QTimer poll; // acts from inside the dialogs' own event loops
        poll.callOnTimeout([&] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                questions << box->windowTitle() + ": " + box->text();
                box->button(c.answers.isEmpty() ? no : c.answers.takeFirst())->click();
            } else if (auto *dialog =
                           qobject_cast<QFileDialog *>(QApplication::activeModalWidget())) {
                auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
                if (c.answers.isEmpty() || !name)
                    return dialog->reject();
                if (std::exchange(typing, true))
                    return;
                name->setText(c.typed);
                // Not from inside this timer: the question waits in an event loop of its own.
                QTimer::singleShot(0, name, [&typing, name] {
                    typing = false;
                    QTest::keyClick(name, Qt::Key_Return);
                });
            }
        });
        poll.start(10);
        EXPECT_EQ(QtProjectDialogs().ShowSaveDialog({"*.spj (Sounds)", "*.spj"},
                                                    "Sound Projekt speichern", folder.path()),
                  c.chosen);
        for (QString &question : c.questions)
            question.prepend("Sound Projekt speichern: ");
        EXPECT_EQ(questions, c.questions) << c.typed.toStdString();
    }
    manager.terminate();
    manager.waitForFinished();
}

// Whatever the system's locale (LANG unset or C.UTF-8): buttons, dates and file types German.
TEST(QtProjectDialogs, QtsOwnButtonsDatesAndFileTypesSpeakGerman)
{
    QLocale::setDefault(QLocale::c());
    ASSERT_TRUE(installGermanQtTexts()) << "Qt's German translations are missing";
    QDialogButtonBox buttons(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    EXPECT_EQ(buttons.button(QDialogButtonBox::Save)->text(), "Speichern");
    EXPECT_EQ(buttons.button(QDialogButtonBox::Cancel)->text(), "Abbrechen");
    EXPECT_EQ(QLocale().toString(QDate(2024, 11, 23), "d. MMM"), "23. Nov.");
    EXPECT_EQ(QMimeDatabase().mimeTypeForName("application/octet-stream").comment(), "unbekannt");
}

} // namespace
} // namespace klangor
