#include "ui/backgroundwork.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QProgressDialog>
#include <QPushButton>
#include <QThread>
#include <QTimer>

namespace klangor {
namespace {

// The work runs while the window's thread keeps answering: the dialog appears, and its
// "Abbrechen" reaches the work, which stops.
TEST(BackgroundWork, AbbrechenReachesTheWorkWhileTheWindowAnswers)
{
    QWidget window;
    window.show();
    QTimer cancelling;
    cancelling.callOnTimeout([] {
        if (auto *progress = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget()))
            progress->findChild<QPushButton *>()->click();
    });
    cancelling.start(10);
    bool stopped = false;
    EXPECT_FALSE(runWithProgress(&window, "Umwandeln", "läuft", [&](const ConversionProgress &p) {
        while (p(0.5))
            QThread::yieldCurrentThread();
        stopped = true;
    }));
    EXPECT_TRUE(stopped);
    EXPECT_EQ(runWithProgress<int>(&window, "Umwandeln", "läuft",
                                   [](const ConversionProgress &) { return 7; }),
              7);
}

} // namespace
} // namespace klangor
