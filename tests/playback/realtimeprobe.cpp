#include "playback/realtime.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <grp.h>
#include <pwd.h>
#include <QCoreApplication>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

// Asks for real time on a thread of its own as the sound output's writer does, as an ordinary
// user without a real-time allowance of their own. Prints "returned pending" (or "idle") once
// the call is back, with the request still out or not, then the thread's scheduling once the
// request is over: "rr 5" or "other 0". With "leave" it ends right after the first line.
int main(int argc, char **argv)
{
    const rlimit none = {0, 0};
    if (::setrlimit(RLIMIT_RTPRIO, &none) != 0)
        return 2;
    if (::geteuid() == 0) {
        const passwd *nobody = ::getpwnam("nobody");
        if (!nobody || ::setgroups(0, nullptr) != 0 || ::setgid(nobody->pw_gid) != 0 ||
            ::setuid(nobody->pw_uid) != 0)
            return 2;
        // A user's own programs are dumpable; giving up root made this one not.
        ::prctl(PR_SET_DUMPABLE, 1);
    }
    QCoreApplication app(argc, argv);
    std::promise<std::pair<pid_t, std::future<bool>>> asked;
    std::promise<void> done;
    std::thread writer([&] {
        asked.set_value({::gettid(), klangor::makeThreadRealtime(5)});
        done.get_future().wait();
    });
    auto [thread, granted] = asked.get_future().get();
    const bool pending = granted.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    std::printf("returned %s\n", pending ? "pending" : "idle");
    std::fflush(stdout);
    if (argc < 2 || std::strcmp(argv[1], "leave") != 0) {
        granted.wait_for(std::chrono::seconds(60));
        const int policy = ::sched_getscheduler(thread) & ~SCHED_RESET_ON_FORK;
        sched_param parameter = {};
        ::sched_getparam(thread, &parameter);
        std::printf("%s %d\n", policy == SCHED_RR ? "rr" : "other", parameter.sched_priority);
    }
    done.set_value();
    writer.join();
    return 0;
}
