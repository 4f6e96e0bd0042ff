#include "ui/backgroundwork.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QProgressDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

namespace klangor {
namespace {

// The work runs while the window's thread keeps answering: the dialog appears, and its
// "Abbrechen" reaches the work, which stops. Until then the window takes no click and does not
// close: a second task would start beside the first.
TEST(BackgroundWork, AbbrechenReachesTheWorkWhileTheWindowAnswers)
{
    QWidget window;
    auto *button = new QPushButton("Slot", &window);
    window.show();
    QSignalSpy clicks(button, &QPushButton::clicked);
    int tries = 0;
    QTimer cancelling;
    cancelling.callOnTimeout([&] {
        auto *progress = qobject_cast<QProgressDialog *>(QApplication::activeModalWidget());
        if (progress) {
            QTest::mouseClick(progress->findChild<QPushButton *>(), Qt::LeftButton);
            return;
        }
        ++tries;
        QTest::mouseClick(button, Qt::LeftButton);
        window.close();
    });
    cancelling.start(10);
    bool stopped = false;
    EXPECT_FALSE(runWithProgress(&window, "Umwandeln", "läuft", [&](const ConversionProgress &p) {
        while (p(0.5))
            QThread::yieldCurrentThread();
        stopped = true;
    }));
    EXPECT_TRUE(stopped);
    EXPECT_GT(tries, 0);
    EXPECT_EQ(clicks.count(), 0);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(runWithProgress<int>(&window, "Umwandeln", "läuft",
                                   [](const ConversionProgress &) { return 7; }),
              7);
}

} // namespace
} // namespace klangor
