// A scoped lock over a POSIX mutex.
//
// A mutex call that fails is a programming error (a mutex locked twice, or unlocked by another
// thread), so it is an assertion and not a result.

#pragma once

#include <cassert>
#include <pthread.h>

namespace zem {

/// Holds a mutex from its construction to the end of its scope. The mutex stays the caller's and
/// must outlive the lock.
/// See POSIX pthread_mutex_lock().
class Lock {
public:
    explicit Lock(pthread_mutex_t* mutexToHold) : mutex(mutexToHold) { lock(); }
    ~Lock() { unlock(); }

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    void lock() {
        const int ret = pthread_mutex_lock(mutex);
        assert(ret == 0);
        static_cast<void>(ret);
    }

    void unlock() {
        const int ret = pthread_mutex_unlock(mutex);
        assert(ret == 0);
        static_cast<void>(ret);
    }

    pthread_mutex_t* mutex;
};

}  // namespace zem
