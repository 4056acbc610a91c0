// Observes the tasks of a run and the waits for them, for bench/scaling. By default there is no trace, and a
// loop, a task or a slice of output costs one load.
#pragma once

#include <atomic>
#include <cstdint>

namespace Quillmoran {

class TaskTrace
{
public:
    enum Kind
    {
        ADD, // tasks `id` to `id` + `count` - 1 can be run; who waits for them runs what its group runs
        ADD_ISOLATED, // the same; who waits for them runs no other tasks
        ADD_TO, // the task `id`, one of those that are waited for as `count`, can be run when they are opened
        OPEN,   // tasks that are waited for as `id` can be run when they are added
        ADD_NEXT, // the task `id` can be run, after those of the group `count` that were added before
        WAIT,     // the thread waits for the tasks `id` to `id` + `count` - 1
        RESUME,   // it no longer waits
        BEGIN,    // the thread runs the task `id`
        END,      // the task that the thread began last is complete

        // A lane is a thread that runs its own tasks in order.
        LANE_ADD,   // the lane `id` has another task
        LANE_BEGIN, // this thread, which is the lane `id`, runs its next task
        LANE_WAIT   // the thread waits until the lane `id` has run `count` tasks
    };

    // Called by any thread.
    virtual void note(Kind kind, std::uint64_t id, std::uint64_t count) = 0;

    // Null by default. The trace must not change while tasks run.
    static TaskTrace* get() noexcept { return current.load(std::memory_order_relaxed); }
    static void set(TaskTrace* trace) noexcept { current.store(trace, std::memory_order_relaxed); }
    // The first of `count` consecutive numbers for tasks or lanes.
    static std::uint64_t makeIds(std::uint64_t count) noexcept { return nextId.fetch_add(count); }

    // Notes that the thread waits for as long as this object lives.
    class Waiting
    {
    public:
        Waiting(TaskTrace* trace, Kind kind, std::uint64_t id, std::uint64_t count) : m_trace(trace)
        {
            if (m_trace)
                m_trace->note(kind, id, count);
        }
        ~Waiting()
        {
            if (m_trace)
                m_trace->note(RESUME, 0, 0);
        }
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;

    private:
        TaskTrace* const m_trace;
    };

    // Notes that the thread runs a task for as long as this object lives.
    class Running
    {
    public:
        Running(TaskTrace* trace, Kind kind, std::uint64_t id) : m_trace(trace)
        {
            if (m_trace)
                m_trace->note(kind, id, 1);
        }
        ~Running()
        {
            if (m_trace)
                m_trace->note(END, 0, 0);
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

    private:
        TaskTrace* const m_trace;
    };

protected:
    ~TaskTrace() = default;

private:
    inline static std::atomic<TaskTrace*> current{nullptr};
    inline static std::atomic<std::uint64_t> nextId{1};
};

} // namespace Quillmoran
