// The worker threads of a run. Holds the limit for as long as it lives; work runs inside execute().
#pragma once

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran {

class ThreadPool
{
public:
    // 0 takes as many threads as the machine has.
    explicit ThreadPool(unsigned numThreads);

    template <class Work>
    void execute(Work work)
    {
        m_arena.execute(work);
    }

private:
    tbb::global_control m_limit;
    tbb::task_arena m_arena;
};

} // namespace Quillmoran
