// A POSIX mutex whose failures throw. It meets BasicLockable, so that std::lock_guard works with it.
#pragma once

#include <vxunpack/Base.h>

#include <pthread.h>

namespace Quillmoran {

class Mutex
{
public:
    Mutex() { check(pthread_mutex_init(&m_mutex, nullptr), "Mutex", __LINE__); }
    ~Mutex() { pthread_mutex_destroy(&m_mutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Both throw OSError with the current errno when the pthread call fails.
    void lock() { check(pthread_mutex_lock(&m_mutex), "lock", __LINE__); }
    void unlock() { check(pthread_mutex_unlock(&m_mutex), "unlock", __LINE__); }

private:
    static void check(int result, const char* function, int line)
    {
        if (result != 0)
            throw OSError(__FILE__, function, line);
    }

    pthread_mutex_t m_mutex;
};

} // namespace Quillmoran
