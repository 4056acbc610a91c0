#include "platform/BackgroundTask.h"

#include <exception>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#include <thread>
#else
#define TBB_PREVIEW_ISOLATED_TASK_GROUP 1
#include <tbb/task_group.h>
#endif

namespace Quillmoran {

namespace {

#if defined(__SANITIZE_THREAD__)

// A plain thread, for the same reason as in ParallelLoop.
class Group
{
public:
    template <class Function>
    void run(const Function& function)
    {
        m_thread = std::thread(function);
    }
    void wait() { m_thread.join(); }

private:
    std::thread m_thread;
};

#else
using Group = tbb::isolated_task_group;
#endif

} // namespace

struct BackgroundTask::Private
{
    Group group;
    std::function<void()> function;
    std::exception_ptr failure;
    bool isStarted = false;

    void run() noexcept
    {
        try {
            function();
        } catch (...) {
            failure = std::current_exception();
        }
    }
};

BackgroundTask::BackgroundTask() : m_private(std::make_unique<Private>())
{}

BackgroundTask::~BackgroundTask()
{
    if (m_private->isStarted)
        m_private->group.wait();
}

void BackgroundTask::start(std::function<void()> function)
{
    Private& state = *m_private;
    state.function = std::move(function);
    state.failure = nullptr;
    state.group.run([&state] { state.run(); });
    state.isStarted = true;
}

bool BackgroundTask::isStarted() const noexcept
{
    return m_private->isStarted;
}

void BackgroundTask::wait()
{
    Private& state = *m_private;
    state.group.wait();
    state.isStarted = false;
    if (state.failure)
        std::rethrow_exception(std::exchange(state.failure, nullptr));
}

} // namespace Quillmoran
