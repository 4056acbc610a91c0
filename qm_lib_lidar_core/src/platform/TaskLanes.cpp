#include "platform/TaskLanes.h"

#include "platform/TaskTrace.h"
#include "platform/scheduler/Scheduler.h"

#include <cstdint>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

namespace Quillmoran {

struct TaskLanes::Private
{
    struct Slot
    {
        TaskGroup steps;
        std::vector<std::exception_ptr> failures; // by lane
        std::uint64_t firstTask = 0;              // of the trace
    };
    struct Lane
    {
        std::uint64_t numReturned = 0; // steps
        bool hasFailed = false;
    };

    Private(std::size_t numLanes, std::size_t numSlots,
            std::function<void(std::size_t, std::size_t)> function)
        : run(std::move(function)), slots(numSlots), lanes(numLanes)
    {}

    Slot& slotOf(std::uint64_t step) { return slots[step % slots.size()]; }
    // Makes the next step of a lane a task. With the mutex.
    void add(std::size_t lane);
    void runStep(std::uint64_t step, std::size_t lane);

    const std::function<void(std::size_t, std::size_t)> run;
    TaskTrace* const trace = TaskTrace::get();
    std::uint64_t finished = 0; // slots so far

    std::mutex mutex; // of `started` and `lanes`
    std::uint64_t started = 0;
    std::vector<Slot> slots;
    std::vector<Lane> lanes;
};

void TaskLanes::Private::add(std::size_t lane)
{
    const std::uint64_t step = lanes[lane].numReturned;
    Slot& slot = slotOf(step);
    if (trace)
        trace->note(TaskTrace::ADD_TO, slot.firstTask + lane, slot.firstTask);
    slot.steps.run([this, step, lane] { runStep(step, lane); });
}

void TaskLanes::Private::runStep(std::uint64_t step, std::size_t lane)
{
    Slot& slot = slotOf(step);
    const TaskTrace::Running running(trace, TaskTrace::BEGIN, slot.firstTask + lane);
    if (!lanes[lane].hasFailed) {
        try {
            run(static_cast<std::size_t>(step % slots.size()), lane);
        } catch (...) {
            slot.failures[lane] = std::current_exception();
            lanes[lane].hasFailed = true;
        }
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (++lanes[lane].numReturned < started)
        add(lane); // before this step has returned, so that finish() never finds a slot without its steps
}

TaskLanes::TaskLanes(std::size_t numLanes, std::size_t numSlots,
                     std::function<void(std::size_t, std::size_t)> run)
    : m_private(std::make_unique<Private>(numLanes, numSlots, std::move(run)))
{}

TaskLanes::~TaskLanes()
{
    Private& state = *m_private;
    for (; state.finished != state.started; ++state.finished) {
        try {
            state.slotOf(state.finished).steps.wait();
        } catch (...) {
            // There was no memory for a step, which has not run.
        }
    }
}

std::size_t TaskLanes::numStarted() const noexcept
{
    return static_cast<std::size_t>(m_private->started - m_private->finished);
}

std::size_t TaskLanes::nextSlot() const noexcept
{
    return static_cast<std::size_t>(m_private->started % m_private->slots.size());
}

void TaskLanes::start()
{
    Private& state = *m_private;
    const std::lock_guard<std::mutex> lock(state.mutex);
    Private::Slot& slot = state.slotOf(state.started);
    slot.failures.assign(state.lanes.size(), nullptr);
    if (state.trace) {
        slot.firstTask = TaskTrace::makeIds(state.lanes.size());
        state.trace->note(TaskTrace::OPEN, slot.firstTask, 1);
    }
    const std::uint64_t step = state.started++;
    for (std::size_t lane = 0; lane < state.lanes.size(); ++lane)
        if (state.lanes[lane].numReturned == step)
            state.add(lane);
}

std::size_t TaskLanes::finish()
{
    Private& state = *m_private;
    const auto index = static_cast<std::size_t>(state.finished % state.slots.size());
    Private::Slot& slot = state.slots[index];
    {
        const TaskTrace::Waiting waiting(state.trace, TaskTrace::WAIT, slot.firstTask, state.lanes.size());
        slot.steps.wait();
    }
    ++state.finished;
    for (const std::exception_ptr& failure : slot.failures)
        if (failure)
            std::rethrow_exception(failure);
    return index;
}

} // namespace Quillmoran
