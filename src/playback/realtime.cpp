#include "playback/realtime.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <dbus/dbus.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace klangor {

namespace {

// RealtimeKit grants only threads of processes that limit their real-time CPU time, so that a
// runaway thread is stopped; it allows at most 200 ms at a stretch.
constexpr rlim_t realtimeBudgetUs = 200000;
// A bus that has not answered by then is given up.
constexpr std::chrono::milliseconds answerTime(2000);

using Clock = std::chrono::steady_clock;

// Milliseconds left until the deadline, at least one: libdbus takes none as its default.
int msLeft(Clock::time_point until)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
    return int(std::clamp<std::chrono::milliseconds::rep>(left.count(), 1, answerTime.count()));
}

// Whether the method returned before the deadline; takes the message.
bool returns(DBusConnection *bus, DBusMessage *message, Clock::time_point until)
{
    if (!message)
        return false;
    DBusMessage *reply =
        dbus_connection_send_with_reply_and_block(bus, message, msLeft(until), nullptr);
    dbus_message_unref(message);
    if (!reply)
        return false;
    dbus_message_unref(reply);
    return true;
}

bool askRealtimeKit(pid_t thread, int priority)
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_RTTIME, &limit) == 0 && limit.rlim_max > realtimeBudgetUs) {
        limit.rlim_cur = limit.rlim_max = realtimeBudgetUs;
        if (::setrlimit(RLIMIT_RTTIME, &limit) != 0)
            return false;
    }
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    // libdbus connects a local socket blocking: a bus that stopped accepting, its backlog full,
    // holds this thread without end. Nobody waits for it, so that costs the thread only.
    DBusConnection *bus = dbus_connection_open_private(
        address ? address : "unix:path=/var/run/dbus/system_bus_socket", nullptr);
    if (!bus)
        return false;
    const auto until = Clock::now() + answerTime;
    // libdbus would wait for the bus's greeting without end; it is waited for here, bounded.
    while (!dbus_connection_get_is_authenticated(bus) && dbus_connection_get_is_connected(bus) &&
           Clock::now() < until)
        dbus_connection_read_write(bus, msLeft(until));
    bool granted = false;
    if (dbus_connection_get_is_authenticated(bus) &&
        returns(bus,
                dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS,
                                             "Hello"),
                until)) {
        DBusMessage *call = dbus_message_new_method_call(
            "org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1",
            "org.freedesktop.RealtimeKit1", "MakeThreadRealtime");
        const dbus_uint64_t id = dbus_uint64_t(thread);
        const dbus_uint32_t level = dbus_uint32_t(priority);
        if (call && !dbus_message_append_args(call, DBUS_TYPE_UINT64, &id, DBUS_TYPE_UINT32, &level,
                                              DBUS_TYPE_INVALID)) {
            dbus_message_unref(call);
            call = nullptr;
        }
        granted = returns(bus, call, until);
    }
    dbus_connection_close(bus);
    dbus_connection_unref(bus);
    return granted;
}

} // namespace

std::future<bool> makeThreadRealtime(int priority)
{
    std::promise<bool> granted;
    std::future<bool> result = granted.get_future();
    sched_param parameter = {};
    parameter.sched_priority = priority;
    // Children do not inherit it.
    if (::sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &parameter) == 0) {
        granted.set_value(true);
        return result;
    }
    // Asked on a thread of its own, never from the thread itself, which may hold a lock the
    // window's thread waits for. The thread owns all it uses and nobody waits for it: a bus
    // that takes the connection and never answers would otherwise hold the program's exit.
    const pid_t thread = ::gettid();
    try {
        std::thread([thread, priority, granted = std::move(granted)]() mutable {
            granted.set_value(askRealtimeKit(thread, priority));
        }).detach();
    } catch (const std::system_error &) {
        // Without a thread the request is not made; the result reports a broken promise.
    }
    return result;
}

} // namespace klangor
