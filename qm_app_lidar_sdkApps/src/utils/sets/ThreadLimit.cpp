#include "utils/sets/ThreadLimit.h"

#include <algorithm>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <thread>

namespace Quillmoran {

namespace {

constexpr unsigned maxThreads = 1024; // larger numbers are mistakes

unsigned chooseThreads(unsigned wanted)
{
    if (wanted == 0)
        wanted = std::thread::hardware_concurrency();
    return std::clamp(wanted, 1u, maxThreads);
}

} // namespace

struct ThreadLimit::Imp
{
    explicit Imp(unsigned numThreads)
        : limit(tbb::global_control::max_allowed_parallelism, numThreads), arena(static_cast<int>(numThreads))
    {}

    tbb::global_control limit;
    tbb::task_arena arena;
};

ThreadLimit::ThreadLimit(unsigned numThreads) : m_imp(new Imp(chooseThreads(numThreads)))
{}

ThreadLimit::~ThreadLimit() = default;

void ThreadLimit::execute(const std::function<void()>& work)
{
    m_imp->arena.execute(work);
}

} // namespace Quillmoran
