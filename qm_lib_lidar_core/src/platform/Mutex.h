// A POSIX mutex whose failures throw. It meets BasicLockable, so that std::lock_guard works with it.
#pragma once

#include <pthread.h>

namespace Quillmoran {

class Mutex
{
public:
    Mutex();
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Both throw OSError with the current errno when the pthread call fails.
    void lock();
    void unlock();

private:
    pthread_mutex_t m_mutex;
};

} // namespace Quillmoran
