#include "playback/realtime.h"

#include <pthread.h>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QThreadPool>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace klangor {

namespace {

// RealtimeKit grants only threads of processes that limit their real-time CPU time, so that a
// runaway thread is stopped; it allows at most 200 ms at a stretch.
constexpr rlim_t realtimeBudgetUs = 200000;

bool askRealtimeKit(pid_t thread, int priority)
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_RTTIME, &limit) == 0 && limit.rlim_max > realtimeBudgetUs) {
        limit.rlim_cur = limit.rlim_max = realtimeBudgetUs;
        if (::setrlimit(RLIMIT_RTTIME, &limit) != 0)
            return false;
    }
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.RealtimeKit1"),
        QStringLiteral("/org/freedesktop/RealtimeKit1"),
        QStringLiteral("org.freedesktop.RealtimeKit1"), QStringLiteral("MakeThreadRealtime"));
    call << quint64(thread) << quint32(priority);
    return bus.call(call, QDBus::Block, 1000).type() == QDBusMessage::ReplyMessage;
}

} // namespace

void makeThreadRealtime(int priority)
{
    sched_param parameter = {};
    parameter.sched_priority = priority;
    // Children do not inherit it.
    if (::sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &parameter) == 0)
        return;
    // The bus may take its time to answer: asked from the pool, never from the thread itself,
    // which may hold a lock the window's thread waits for.
    const pid_t thread = ::gettid();
    QThreadPool::globalInstance()->start([thread, priority] { askRealtimeKit(thread, priority); });
}

} // namespace klangor
