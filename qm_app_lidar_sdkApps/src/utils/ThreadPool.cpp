#include "utils/ThreadPool.h"

#include <algorithm>
#include <thread>

namespace Quillmoran {

namespace {

constexpr unsigned mostThreads = 1024; // beyond that a number is a mistake

unsigned chooseThreads(unsigned wanted)
{
    if (wanted == 0)
        wanted = std::thread::hardware_concurrency();
    return std::clamp(wanted, 1u, mostThreads);
}

} // namespace

ThreadPool::ThreadPool(unsigned numThreads)
    : m_limit(tbb::global_control::max_allowed_parallelism, chooseThreads(numThreads)),
      m_arena(static_cast<int>(chooseThreads(numThreads)))
{}

} // namespace Quillmoran
