#include "platform/TaskRing.h"

#include "platform/ParallelLoop.h"
#include "platform/TaskTrace.h"
#include "platform/scheduler/Scheduler.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

namespace Quillmoran {

struct TaskRing::Private
{
    struct Slot
    {
        bool hasReturned = false;
        std::exception_ptr failure;
        std::uint64_t task = 0; // of the trace
    };

    Private(std::size_t numSlots, std::function<void(std::size_t)> function)
        : run(std::move(function)), maxRunners(std::min(getNumThreads() - 1, numSlots)), slots(numSlots)
    {}

    bool hasUnclaimed() const { return claimed != started; }
    void runNext(std::unique_lock<std::mutex>& lock);
    void runAll();

    const std::function<void(std::size_t)> run;
    const std::size_t maxRunners;
    TaskTrace* const trace = TaskTrace::get();
    const std::uint64_t group = trace ? TaskTrace::makeIds(1) : 0; // of the trace

    // Written by the owner only, with the mutex.
    std::uint64_t started = 0; // tasks so far
    std::uint64_t finished = 0;

    std::mutex mutex; // of everything below
    std::condition_variable returned;
    std::vector<Slot> slots;
    std::uint64_t claimed = 0; // tasks that a thread runs or has run
    std::size_t numRunners = 0;
    bool ends = false;

    TaskGroup runners;
};

void TaskRing::Private::runNext(std::unique_lock<std::mutex>& lock)
{
    const auto index = static_cast<std::size_t>(claimed++ % slots.size());
    Slot& slot = slots[index];
    lock.unlock();
    {
        const TaskTrace::Running running(trace, TaskTrace::BEGIN, slot.task);
        try {
            run(index);
        } catch (...) {
            slot.failure = std::current_exception();
        }
    }
    lock.lock();
    slot.hasReturned = true;
    returned.notify_all();
}

// A thread of the scheduler: runs what there is, then leaves, so that it never waits.
void TaskRing::Private::runAll()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (hasUnclaimed() && !ends)
        runNext(lock);
    --numRunners;
}

TaskRing::TaskRing(std::size_t numSlots, std::function<void(std::size_t)> run)
    : m_private(std::make_unique<Private>(numSlots, std::move(run)))
{}

TaskRing::~TaskRing()
{
    {
        const std::lock_guard<std::mutex> lock(m_private->mutex);
        m_private->ends = true;
    }
    m_private->runners.wait();
}

std::size_t TaskRing::numStarted() const noexcept
{
    return static_cast<std::size_t>(m_private->started - m_private->finished);
}

std::size_t TaskRing::nextSlot() const noexcept
{
    return static_cast<std::size_t>(m_private->started % m_private->slots.size());
}

void TaskRing::start()
{
    Private& state = *m_private;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        Private::Slot& slot = state.slots[nextSlot()];
        slot = {};
        if (state.trace) {
            slot.task = TaskTrace::makeIds(1);
            state.trace->note(TaskTrace::ADD_NEXT, slot.task, state.group);
        }
        ++state.started;
        if (state.numRunners == state.maxRunners)
            return;
        ++state.numRunners;
    }
    state.runners.run([&state] { state.runAll(); });
}

std::size_t TaskRing::finish()
{
    Private& state = *m_private;
    std::unique_lock<std::mutex> lock(state.mutex);
    const auto index = static_cast<std::size_t>(state.finished % state.slots.size());
    Private::Slot& slot = state.slots[index];
    {
        const TaskTrace::Waiting waiting(state.trace, TaskTrace::WAIT, slot.task, 1);
        while (!slot.hasReturned) {
            if (state.hasUnclaimed())
                state.runNext(lock);
            else
                state.returned.wait(lock);
        }
    }
    ++state.finished;
    if (slot.failure)
        std::rethrow_exception(std::exchange(slot.failure, nullptr));
    return index;
}

} // namespace Quillmoran
