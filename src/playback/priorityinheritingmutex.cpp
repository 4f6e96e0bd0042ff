#include "playback/priorityinheritingmutex.h"

#include <cstdlib>

namespace klangor {

PriorityInheritingMutex::PriorityInheritingMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    // Where the system has no inheritance, an ordinary mutex still locks.
    if (pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT) != 0 ||
        pthread_mutex_init(&m_mutex, &attributes) != 0) {
        if (pthread_mutex_init(&m_mutex, nullptr) != 0)
            std::abort();
    }
    pthread_mutexattr_destroy(&attributes);
}

PriorityInheritingMutex::~PriorityInheritingMutex()
{
    pthread_mutex_destroy(&m_mutex);
}

void PriorityInheritingMutex::lock()
{
    // Fails only for misuse (a second lock from the holder), which would otherwise hang.
    if (pthread_mutex_lock(&m_mutex) != 0)
        std::abort();
}

bool PriorityInheritingMutex::try_lock()
{
    return pthread_mutex_trylock(&m_mutex) == 0;
}

void PriorityInheritingMutex::unlock()
{
    pthread_mutex_unlock(&m_mutex);
}

} // namespace klangor
