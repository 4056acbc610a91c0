#include "common/ParallelLoop.h"

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

// The scheduler is not built with the sanitizer, which would take its handing over of tasks for races and
// could not tell them from ours. Plain threads show it everything.
template <class Body>
void runAll(std::size_t count, const Body& body)
{
    constexpr std::size_t mostThreads = 4;
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::min(count, mostThreads); ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < count; index = next++)
                body(index);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

#else

template <class Body>
void runAll(std::size_t count, const Body& body)
{
    // The caller may hold a lock. While it waits it must not take up tasks of other loops, which may want it.
    tbb::this_task_arena::isolate([&] {
        tbb::task_group_context context;
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(0, count),
            [&body](const tbb::blocked_range<std::size_t>& range) {
                for (std::size_t i = range.begin(); i != range.end(); ++i)
                    body(i);
            },
            tbb::auto_partitioner(), context);
    });
}

#endif

} // namespace

void parallelLoop(std::size_t count, const std::function<void(std::size_t)>& body)
{
    std::vector<std::exception_ptr> failures(count);
    runAll(count, [&](std::size_t index) {
        try {
            body(index);
        } catch (...) {
            failures[index] = std::current_exception();
        }
    });
    for (const std::exception_ptr& failure : failures)
        if (failure)
            std::rethrow_exception(failure);
}

} // namespace Quillmoran
