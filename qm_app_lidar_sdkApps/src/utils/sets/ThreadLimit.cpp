#include "utils/sets/ThreadLimit.h"

#include <algorithm>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <thread>

namespace Quillmoran {

struct ThreadLimit::Imp
{
    explicit Imp(unsigned numThreads)
        : limit(tbb::global_control::max_allowed_parallelism, numThreads), arena(static_cast<int>(numThreads))
    {}

    tbb::global_control limit;
    tbb::task_arena arena;
};

ThreadLimit::ThreadLimit(unsigned numThreads) : m_imp(std::make_unique<Imp>(resolve(numThreads)))
{}

unsigned ThreadLimit::resolve(unsigned numThreads)
{
    constexpr unsigned maxThreads = 1024; // larger numbers are mistakes
    return std::clamp(numThreads != 0 ? numThreads : std::thread::hardware_concurrency(), 1u, maxThreads);
}

ThreadLimit::~ThreadLimit() = default;

void ThreadLimit::execute(const std::function<void()>& work)
{
    m_imp->arena.execute(work);
}

void ThreadLimit::executeOn(unsigned numThreads, const std::function<void()>& work)
{
    tbb::task_arena(static_cast<int>(std::max(numThreads, 1u))).execute(work);
}

} // namespace Quillmoran
