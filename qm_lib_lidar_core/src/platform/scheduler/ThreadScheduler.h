// Tasks on plain threads, for the thread sanitizer: TBB is not built with it, so it would report TBB's task
// switches as races.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace Quillmoran {

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

namespace Scheduler {

constexpr bool hasThreads = true;
constexpr std::size_t maxThreads = 4;

inline std::size_t countThreads()
{
    return maxThreads;
}

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

} // namespace Scheduler

} // namespace Quillmoran
