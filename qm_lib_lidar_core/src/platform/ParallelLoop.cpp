#include "platform/ParallelLoop.h"

#include "platform/TaskTrace.h"
#include "platform/scheduler/Scheduler.h"

#include <exception>
#include <vector>

namespace Quillmoran {

namespace {

// `kind` is that of the trace.
void runLoop(std::size_t count, const std::function<void(std::size_t)>& body, TaskTrace::Kind kind)
{
    if (count <= 1) {
        if (count == 1)
            body(0);
        return;
    }
    TaskTrace* const trace = TaskTrace::get();
    const std::uint64_t firstTask = trace ? TaskTrace::makeIds(count) : 0;
    if (trace)
        trace->note(kind, firstTask, count);
    std::vector<std::exception_ptr> failures(count);
    {
        const TaskTrace::Waiting waiting(trace, TaskTrace::WAIT, firstTask, count);
        Scheduler::runAll(count, [&](std::size_t index) {
            const TaskTrace::Running running(trace, TaskTrace::BEGIN, firstTask + index);
            try {
                body(index);
            } catch (...) {
                failures[index] = std::current_exception();
            }
        });
    }
    for (const std::exception_ptr& failure : failures)
        if (failure)
            std::rethrow_exception(failure);
}

} // namespace

void nestedParallelLoop(std::size_t count, const std::function<void(std::size_t)>& body)
{
    runLoop(count, body, TaskTrace::ADD);
}

void parallelLoop(std::size_t count, const std::function<void(std::size_t)>& body)
{
    Scheduler::runIsolated([&] { runLoop(count, body, TaskTrace::ADD_ISOLATED); });
}

std::size_t getNumThreads()
{
    return Scheduler::countThreads();
}

bool hasThreads() noexcept
{
    return Scheduler::hasThreads;
}

} // namespace Quillmoran
