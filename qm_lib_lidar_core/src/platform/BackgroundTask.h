// One piece of work that goes on while its owner does something else: the next block of points is decoded
// while the present one is written. It runs on the threads of the scheduler that the owner runs in; with one
// thread it runs when it is waited for. Used by one thread at a time.
#pragma once

#include <functional>
#include <memory>

namespace Quillmoran {

class BackgroundTask
{
public:
    BackgroundTask();
    // Waits for what was started; what it throws is lost.
    ~BackgroundTask();
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // One function at a time: wait() comes before the next start().
    void start(std::function<void()> function);
    bool isStarted() const noexcept;
    // Returns when the function has, and throws what it threw. The caller lends a hand meanwhile, to this
    // task and its loops and to nothing else: it may hold a lock that other tasks want.
    void wait();

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
