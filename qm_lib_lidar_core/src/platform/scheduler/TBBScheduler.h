// Tasks on the threads of oneTBB.
#pragma once

#ifndef TBB_PREVIEW_ISOLATED_TASK_GROUP // the build of this library defines it
#define TBB_PREVIEW_ISOLATED_TASK_GROUP 1
#endif
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <cstddef>

namespace Quillmoran {

using TaskGroup = tbb::isolated_task_group;

namespace Scheduler {

constexpr bool hasThreads = true;

inline std::size_t countThreads()
{
    return static_cast<std::size_t>(tbb::this_task_arena::max_concurrency());
}

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

} // namespace Scheduler

} // namespace Quillmoran
