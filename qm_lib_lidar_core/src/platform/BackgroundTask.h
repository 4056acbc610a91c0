// Runs one function in the background: the next block of points is decoded while the current one is written.
// It runs on the threads of the owner's scheduler; with one thread it runs in wait(). Used by one thread at a
// time.
#pragma once

#include <functional>
#include <memory>

namespace Quillmoran {

class BackgroundTask
{
public:
    BackgroundTask();
    // Waits for the function and ignores its exception.
    ~BackgroundTask();
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // Call wait() before the next start().
    void start(std::function<void()> function);
    bool isStarted() const noexcept;
    // Returns when the function has returned, and rethrows its exception. While it waits, the caller runs
    // only this task and its loops, since it may hold a lock that other tasks need.
    void wait();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
