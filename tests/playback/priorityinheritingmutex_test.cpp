#include "playback/priorityinheritingmutex.h"

#include <cerrno>
#include <cstring>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <QFile>
#include <QTest>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace klangor {
namespace {

// The priority the kernel runs the thread at, as it shows it: 0 to 39 for an ordinary thread,
// -1 - p for one at real-time priority p.
int kernelPriority(pid_t thread)
{
    QFile stat(QStringLiteral("/proc/self/task/%1/stat").arg(thread));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = stat.readAll();
    // The fields from the third on follow the name in parentheses, which may hold spaces.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 15 ? fields[15].toInt() : 0;
}

// An ordinary thread holds the lock; a real-time thread that waits for it lends it its priority
// until it has the lock.
TEST(PriorityInheritingMutex, HolderRunsAtTheWaitersPriority)
{
    constexpr int waiterPriority = 10;
    PriorityInheritingMutex mutex;
    std::promise<pid_t> held;
    std::promise<void> release;
    std::thread holder([&] {
        const std::lock_guard lock(mutex);
        held.set_value(::gettid());
        release.get_future().wait();
    });
    const pid_t holderId = held.get_future().get();
    std::promise<int> scheduled;
    std::thread waiter([&] {
        sched_param parameter = {};
        parameter.sched_priority = waiterPriority;
        const int refused = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameter);
        scheduled.set_value(refused);
        if (refused == 0) {
            mutex.lock();
            mutex.unlock();
        }
    });
    const int refused = scheduled.get_future().get();
    const bool boosted =
        refused == 0 &&
        QTest::qWaitFor([&] { return kernelPriority(holderId) == -1 - waiterPriority; }, 10000);
    const int whileWaited = kernelPriority(holderId);
    release.set_value();
    holder.join();
    waiter.join();
    if (refused != 0)
        GTEST_SKIP() << "real-time scheduling is not allowed here: " << std::strerror(refused);
    EXPECT_TRUE(boosted) << "the holder stayed at " << whileWaited;
}

} // namespace
} // namespace klangor
