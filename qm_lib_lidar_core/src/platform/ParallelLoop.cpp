#include "platform/ParallelLoop.h"

#include "platform/TaskTrace.h"

#include <exception>
#include <vector>

#if defined(__SANITIZE_THREAD__)
#include <algorithm>
#include <atomic>
#include <thread>
#else
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#endif

namespace Quillmoran {

namespace {

#if defined(__SANITIZE_THREAD__)

// The scheduler is not built with the sanitizer, which would report its task switches as races. Plain threads
// are fully visible to it.
constexpr std::size_t maxThreads = 4;

template <class Body>
void runAll(std::size_t count, const Body& body)
{
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::min(count, maxThreads); ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < count; index = next++)
                body(index);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

template <class Function>
void runIsolated(const Function& function)
{
    function();
}

std::size_t countThreads()
{
    return maxThreads;
}

#else

// Iterations are few and long, so each is a task.
template <class Body>
void runAll(std::size_t count, const Body& body)
{
    tbb::task_group_context context;
    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(0, count),
        [&body](const tbb::blocked_range<std::size_t>& range) {
            for (std::size_t i = range.begin(); i != range.end(); ++i)
                body(i);
        },
        tbb::simple_partitioner(), context);
}

template <class Function>
void runIsolated(const Function& function)
{
    tbb::this_task_arena::isolate(function);
}

std::size_t countThreads()
{
    return static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
}

#endif

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
        runAll(count, [&](std::size_t index) {
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
    runIsolated([&] { runLoop(count, body, TaskTrace::ADD_ISOLATED); });
}

std::size_t getNumThreads()
{
    return countThreads();
}

} // namespace Quillmoran
