#pragma once

#include <pthread.h>

namespace klangor {

// A mutex whose holder runs at the priority of the highest thread waiting for it: a real-time
// reader that waits while the window's thread holds it for a moment is not held up further by
// whatever the scheduler would run in place of the window's thread. Works with std::lock_guard.
class PriorityInheritingMutex
{
public:
    PriorityInheritingMutex();
    ~PriorityInheritingMutex();
    PriorityInheritingMutex(const PriorityInheritingMutex &) = delete;
    PriorityInheritingMutex &operator=(const PriorityInheritingMutex &) = delete;

    void lock();
    bool try_lock();
    void unlock();

private:
    pthread_mutex_t m_mutex;
};

} // namespace klangor
