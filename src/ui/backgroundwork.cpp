#include "ui/backgroundwork.h"

#include "ui/qtmessagepresenter.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <QApplication>
#include <QEventLoop>
#include <QLabel>
#include <QProgressDialog>
#include <QThread>
#include <QTimer>

namespace klangor {
namespace {

// While work runs, the user reaches only its progress dialog: before the dialog shows there is
// no modality yet, and a click would start a second task or change what the first one's result
// goes to (the slot of another event, a project opened into the folder being written).
class InputLock final : public QObject
{
public:
    explicit InputLock(const QWidget &progress) : m_progress(progress)
    {
        qApp->installEventFilter(this);
    }
    ~InputLock() override { qApp->removeEventFilter(this); }

private:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::MouseButtonPress: // releases pass: a press before the work wants its end
        case QEvent::MouseButtonDblClick:
        case QEvent::Wheel:
        case QEvent::KeyPress:
        case QEvent::ShortcutOverride:
        case QEvent::Shortcut:
        case QEvent::ContextMenu:
        case QEvent::DragEnter:
        case QEvent::DragMove:
        case QEvent::Drop:
        case QEvent::Close:
            break;
        default:
            return false;
        }
        // A shortcut goes to its action; everything else counts by the widget it reaches.
        const auto *widget = qobject_cast<const QWidget *>(watched);
        if (!widget && event->type() != QEvent::Shortcut)
            return false;
        if (widget && widget->window() == &m_progress)
            return false;
        // An accepted override keeps the shortcut from firing; an ignored close keeps the
        // window open.
        event->setAccepted(event->type() == QEvent::ShortcutOverride);
        return true;
    }

    const QWidget &m_progress;
};

} // namespace

bool runWithProgress(QWidget *parent, const QString &title, const QString &label,
                     const std::function<void(const ConversionProgress &)> &work)
{
    constexpr int Steps = 1000;
    std::atomic<bool> cancelled = false;
    std::atomic<int> done = 0;
    bool stopped = false; // the work was told to stop; only its thread touches this
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
    progress.setValue(0); // starts the clock for the minimum duration
    QObject::connect(&progress, &QProgressDialog::canceled, [&cancelled] { cancelled = true; });

    const InputLock lock(progress);
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        work([&](double share) {
            done = static_cast<int>(std::clamp(share, 0.0, 1.0) * Steps);
            stopped = stopped || cancelled;
            return !stopped;
        });
    }));
    QEventLoop loop;
    QObject::connect(thread.get(), &QThread::finished, &loop, &QEventLoop::quit);
    // The dialog appears and moves only through setValue.
    QTimer tick;
    tick.setInterval(50);
    QObject::connect(&tick, &QTimer::timeout, &progress, [&] {
        if (progress.wasCanceled()) // also by Escape, which does not signal
            cancelled = true;
        else
            progress.setValue(std::min(done.load(), Steps - 1));
    });
    thread->start();
    tick.start();
    loop.exec();
    thread->wait(); // it has finished; this only joins it
    // A cancel that came too late for the work leaves its result standing: it is on disk.
    return !stopped;
}

} // namespace klangor
