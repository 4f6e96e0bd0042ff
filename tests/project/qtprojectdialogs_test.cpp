#include "ui/qtprojectdialogs.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QFileDialog>
#include <QTemporaryDir>
#include <QTimer>

namespace klangor {
namespace {

TEST(QtFileDialogFilterTest, TurnsDescriptionAndPatternPairsIntoQtFilters)
{
    const QList<std::pair<QString, QString>> cases = {
        {QStringLiteral("*.spj (Sounds)|*.spj"), QStringLiteral("*.spj (Sounds) (*.spj)")},
        {QStringLiteral("Sounds|*.wav;*.WAV|Alle|*.*"),
         QStringLiteral("Sounds (*.wav *.WAV);;Alle (*.*)")},
        {QStringLiteral("|"), QString()},
        {QString(), QString()},
    };
    for (const auto &[filter, expected] : cases)
        EXPECT_EQ(qtFileDialogFilter(filter), expected) << filter.toStdString();
}

// Answers the next modal file dialog from inside its event loop.
void answerFileDialog(std::function<void(QFileDialog &)> answer)
{
    auto *timer = new QTimer;
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, answer] {
        if (auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget())) {
            timer->stop();
            timer->deleteLater();
            answer(*dialog);
        }
    });
    timer->start();
}

// The dialogs are inspected and cancelled from inside their own event loop.
TEST(QtProjectDialogsTest, DialogsShowTitleFolderAndFilterAndReturnNothingOnCancel)
{
    QTemporaryDir folder;
    QtProjectDialogs dialogs;
    struct Seen
    {
        QString title, directory;
        QStringList filters;
        QFileDialog::AcceptMode mode = QFileDialog::AcceptOpen;
        QFileDialog::FileMode fileMode = QFileDialog::AnyFile;
        bool confirmsOverwrite = false;
    };
    auto inspectAndCancel = [](Seen &seen) {
        answerFileDialog([&seen](QFileDialog &dialog) {
            seen.title = dialog.windowTitle();
            seen.directory = dialog.directory().absolutePath();
            seen.filters = dialog.nameFilters();
            seen.mode = dialog.acceptMode();
            seen.fileMode = dialog.fileMode();
            seen.confirmsOverwrite = !dialog.testOption(QFileDialog::DontConfirmOverwrite);
            dialog.reject();
        });
    };

    Seen open;
    inspectAndCancel(open);
    EXPECT_EQ(dialogs.ShowOpenDialog(QStringLiteral("*.spj (Sounds)|*.spj"),
                                     QStringLiteral("Sound Projekt öffnen"), folder.path()),
              QString());
    EXPECT_EQ(open.title, QStringLiteral("Sound Projekt öffnen"));
    EXPECT_EQ(open.directory, QDir(folder.path()).absolutePath());
    EXPECT_EQ(open.filters, QStringList{QStringLiteral("*.spj (Sounds) (*.spj)")});
    EXPECT_EQ(open.mode, QFileDialog::AcceptOpen);
    EXPECT_EQ(open.fileMode, QFileDialog::ExistingFile);

    Seen save;
    inspectAndCancel(save);
    EXPECT_EQ(dialogs.ShowSaveDialog(QStringLiteral("*.spj (Sounds)|*.spj"),
                                     QStringLiteral("Sound Projekt speichern"), folder.path()),
              QString());
    EXPECT_EQ(save.title, QStringLiteral("Sound Projekt speichern"));
    EXPECT_EQ(save.directory, QDir(folder.path()).absolutePath());
    EXPECT_EQ(save.filters, QStringList{QStringLiteral("*.spj (Sounds) (*.spj)")});
    EXPECT_EQ(save.mode, QFileDialog::AcceptSave);
    EXPECT_TRUE(save.confirmsOverwrite);
}

} // namespace
} // namespace klangor
