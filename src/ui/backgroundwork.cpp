#include "ui/backgroundwork.h"

#include "ui/qtmessagepresenter.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <QEventLoop>
#include <QLabel>
#include <QProgressDialog>
#include <QThread>
#include <QTimer>

namespace klangor {

bool runWithProgress(QWidget *parent, const QString &title, const QString &label,
                     const std::function<void(const ConversionProgress &)> &work)
{
    constexpr int Steps = 1000;
    std::atomic<bool> cancelled = false;
    std::atomic<int> done = 0;
    QProgressDialog progress(label, QStringLiteral("Abbrechen"), 0, Steps, parent);
    progress.setObjectName(QStringLiteral("Fortschritt"));
    // The label may name a file: plain text, cut to fit the screen.
    auto *text = new QLabel(screenSizedText(label));
    text->setTextFormat(Qt::PlainText);
    progress.setLabel(text);
    progress.setWindowTitle(title);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500); // short work ends before it would show
    progress.setAutoClose(false);
    progress.setAutoReset(false);
    QObject::connect(&progress, &QProgressDialog::canceled, [&cancelled] { cancelled = true; });

    const std::unique_ptr<QThread> thread(QThread::create([&] {
        work([&](double share) {
            done = static_cast<int>(std::clamp(share, 0.0, 1.0) * Steps);
            return !cancelled;
        });
    }));
    QEventLoop loop;
    QObject::connect(thread.get(), &QThread::finished, &loop, &QEventLoop::quit);
    // The dialog appears and moves only through setValue.
    QTimer tick;
    tick.setInterval(50);
    QObject::connect(&tick, &QTimer::timeout, &progress, [&] {
        if (!progress.wasCanceled())
            progress.setValue(std::min(done.load(), Steps - 1));
    });
    thread->start();
    tick.start();
    loop.exec();
    thread->wait(); // it has finished; this only joins it
    return !cancelled;
}

} // namespace klangor
