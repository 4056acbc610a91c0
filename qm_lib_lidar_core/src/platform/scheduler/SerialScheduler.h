// Tasks without threads, for WebAssembly: a task runs when its group is waited for.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

namespace Quillmoran {

class TaskGroup
{
public:
    template <class Function>
    void run(const Function& function)
    {
        m_tasks.emplace_back(function);
    }
    // Tasks may add tasks to this group and to others.
    void wait()
    {
        while (!m_tasks.empty()) {
            const std::function<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            task();
        }
    }

private:
    std::deque<std::function<void()>> m_tasks;
};

namespace Scheduler {

constexpr bool hasThreads = false;

inline std::size_t countThreads()
{
    return 1;
}

template <class Body>
void runAll(std::size_t count, const Body& body)
{
    for (std::size_t i = 0; i < count; ++i)
        body(i);
}

template <class Function>
void runIsolated(const Function& function)
{
    function();
}

} // namespace Scheduler

} // namespace Quillmoran
