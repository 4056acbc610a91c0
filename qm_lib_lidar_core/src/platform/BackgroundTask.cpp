#include "platform/BackgroundTask.h"

#include "platform/TaskTrace.h"
#include "platform/scheduler/Scheduler.h"

#include <exception>
#include <utility>

namespace Quillmoran {

struct BackgroundTask::Private
{
    TaskGroup group;
    std::function<void()> function;
    std::exception_ptr failure;
    bool isStarted = false;
    TaskTrace* trace = nullptr;
    std::uint64_t task = 0; // of the trace

    void run() noexcept
    {
        const TaskTrace::Running running(trace, TaskTrace::BEGIN, task);
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
    state.trace = TaskTrace::get();
    if (state.trace) {
        state.task = TaskTrace::makeIds(1);
        state.trace->note(TaskTrace::ADD_ISOLATED, state.task, 1);
    }
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
    {
        const TaskTrace::Waiting waiting(state.trace, TaskTrace::WAIT, state.task, 1);
        state.group.wait();
    }
    state.isStarted = false;
    if (state.failure)
        std::rethrow_exception(std::exchange(state.failure, nullptr));
}

} // namespace Quillmoran
