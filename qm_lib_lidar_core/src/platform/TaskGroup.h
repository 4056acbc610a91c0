// A group of tasks on the threads of the scheduler that the caller runs in. Its owner waits for all of them.
#pragma once

#if defined(__SANITIZE_THREAD__)
#include <thread>
#include <vector>
#else
#ifndef TBB_PREVIEW_ISOLATED_TASK_GROUP // the build of this library defines it
#define TBB_PREVIEW_ISOLATED_TASK_GROUP 1
#endif
#include <tbb/task_group.h>
#endif

namespace Quillmoran {

#if defined(__SANITIZE_THREAD__)

// Plain threads, for the same reason as in ParallelLoop.
class TaskGroup
{
public:
    template <class Function>
    void run(const Function& function)
    {
        m_threads.emplace_back(function);
    }
    void wait()
    {
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

private:
    std::vector<std::thread> m_threads;
};

#else
using TaskGroup = tbb::isolated_task_group;
#endif

} // namespace Quillmoran
