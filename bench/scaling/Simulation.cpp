#include "scaling/Simulation.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <set>
#include <stdexcept>
#include <utility>

namespace Quillmoran {

namespace {

// A task that a thread has begun and not completed. Those below it wait.
struct Frame
{
    const RecordedTask* task;
    std::size_t step = 0; // the next one
};

struct Lane
{
    const std::deque<RecordedTask>* tasks = nullptr;
    std::uint64_t numReady = 0, numBegun = 0, numDone = 0;
};

// Ready tasks that were added together. Their thread takes them from the beginning, others from the end.
struct Range
{
    std::uint64_t first; // the first of all that were added
    std::uint64_t begin, end;
};

struct Thread
{
    std::vector<Frame> frames = {};
    std::vector<Range> ready = {}; // in the order in which they were added
    Lane* lane = nullptr;          // null for a thread of the pool
    double remaining = 0;          // nanoseconds of the step that it runs; 0: it is idle or waits
};

class Simulation
{
public:
    Simulation(const RecordedRun& run, unsigned cores)
        : m_run(run), m_cores(cores), m_numLeft(run.tasks.size())
    {
        for (const RecordedTask& task : run.tasks)
            ++m_numLeft[task.first];
        m_threads.resize(cores);
        m_threads[0].frames = {{&run.tasks[0]}};
        for (const auto& [id, tasks] : run.lanes) {
            m_lanes[id].tasks = &tasks;
            m_threads.emplace_back().lane = &m_lanes[id];
        }
    }

    double run()
    {
        double time = 0;
        startThreads();
        while (!m_threads[0].frames.empty()) {
            time += pass();
            startThreads();
        }
        return time;
    }

private:
    // Until no thread can start to run.
    void startThreads()
    {
        do {
            m_hasChanged = false;
            for (Thread& thread : m_threads)
                if (thread.remaining == 0)
                    advance(thread);
        } while (m_hasChanged);
    }

    // The time until the next thread completes its step.
    double pass()
    {
        std::size_t numBusy = 0;
        double least = std::numeric_limits<double>::infinity();
        for (const Thread& thread : m_threads) {
            if (thread.remaining == 0)
                continue;
            ++numBusy;
            least = std::min(least, thread.remaining);
        }
        if (numBusy == 0)
            throw std::logic_error("all simulated threads wait");
        for (Thread& thread : m_threads)
            if (thread.remaining != 0)
                thread.remaining -= least;
        return least * std::max(1.0, static_cast<double>(numBusy) / m_cores);
    }

    // Goes on to a step that takes time, or to one that has to wait.
    void advance(Thread& thread)
    {
        while (thread.remaining == 0) {
            if (thread.frames.empty() ? !begin(thread, 0) : !takeStep(thread))
                return;
            m_hasChanged = true;
        }
    }

    // False if the thread has to wait and has nothing else to run.
    bool takeStep(Thread& thread)
    {
        Frame& frame = thread.frames.back();
        if (frame.step == frame.task->steps.size()) {
            complete(thread);
            return true;
        }
        const RecordedStep& step = frame.task->steps[frame.step];
        switch (step.kind) {
        case RecordedStep::RUN:
            thread.remaining = static_cast<double>(step.count);
            break;
        case RecordedStep::ADD:
            add(thread, {step.id, step.id, step.id + step.count});
            break;
        case RecordedStep::OPEN:
            m_open.insert(step.id);
            for (const auto& [owner, range] : std::exchange(m_closed[step.id], {}))
                add(*owner, range);
            break;
        case RecordedStep::WAIT:
            if (m_numLeft[step.id] != 0)
                return begin(thread, m_run.tasks[step.id].group);
            break;
        case RecordedStep::LANE_ADD:
            ++m_lanes[step.id].numReady;
            break;
        case RecordedStep::LANE_WAIT:
            if (m_lanes[step.id].numDone < step.count)
                return false;
            break;
        }
        ++frame.step;
        return true;
    }

    void add(Thread& thread, const Range& range)
    {
        if (m_run.tasks[range.first].isGated && m_open.count(groupOf(range)) == 0) {
            m_closed[groupOf(range)].emplace_back(&thread, range);
            return;
        }
        thread.ready.push_back(range);
        m_owners.insert(&thread);
    }

    // Begins a ready task of the group, or of any if it is 0: the next one of the range that the thread has
    // added last, or the last one of the oldest range of another thread.
    bool begin(Thread& thread, std::uint64_t group)
    {
        if (Lane* const lane = thread.lane) {
            if (lane->numBegun == lane->numReady || !thread.frames.empty())
                return false;
            thread.frames.push_back({&(*lane->tasks)[lane->numBegun++]});
            return true;
        }
        const auto isOfGroup = [&](const Range& range) { return group == 0 || groupOf(range) == group; };
        const auto last = std::find_if(thread.ready.rbegin(), thread.ready.rend(), isOfGroup);
        if (last != thread.ready.rend() && !m_run.tasks[last->first].isInOrder) {
            thread.frames.push_back({&m_run.tasks[last->begin++]});
            if (last->begin == last->end)
                remove(thread, std::next(last).base());
            return true;
        }
        Thread* victim = nullptr;
        std::vector<Range>::iterator oldest;
        for (Thread* const other : m_owners) {
            const auto found = std::find_if(other->ready.begin(), other->ready.end(), isOfGroup);
            if (found != other->ready.end() && (!victim || found->first < oldest->first)) {
                victim = other;
                oldest = found;
            }
        }
        if (!victim)
            return false;
        thread.frames.push_back({&m_run.tasks[--oldest->end]});
        if (oldest->begin == oldest->end)
            remove(*victim, oldest);
        return true;
    }

    void remove(Thread& owner, std::vector<Range>::iterator range)
    {
        owner.ready.erase(range);
        if (owner.ready.empty())
            m_owners.erase(&owner);
    }

    std::uint64_t groupOf(const Range& range) const { return m_run.tasks[range.first].group; }

    void complete(Thread& thread)
    {
        const RecordedTask& task = *thread.frames.back().task;
        thread.frames.pop_back();
        if (thread.lane)
            ++thread.lane->numDone;
        else
            --m_numLeft[task.first];
    }

    const RecordedRun& m_run;
    const unsigned m_cores;
    std::vector<std::uint64_t> m_numLeft; // by first task: those that became ready together and are not done
    std::map<std::uint64_t, Lane> m_lanes;
    std::vector<Thread> m_threads;
    std::set<Thread*> m_owners;                                               // of ready tasks
    std::set<std::uint64_t> m_open;                                           // groups
    std::map<std::uint64_t, std::vector<std::pair<Thread*, Range>>> m_closed; // added tasks, by their group
    bool m_hasChanged = false;
};

std::uint64_t sumUp(const RecordedTask& task)
{
    std::uint64_t sum = 0;
    for (const RecordedStep& step : task.steps)
        sum += step.kind == RecordedStep::RUN ? step.count : 0;
    return sum;
}

std::uint64_t sumUp(const std::deque<RecordedTask>& tasks)
{
    return std::accumulate(tasks.begin(), tasks.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const RecordedTask& task) { return sum + sumUp(task); });
}

} // namespace

double simulate(const RecordedRun& run, unsigned cores)
{
    return Simulation(run, cores).run() / 1e9;
}

RecordedWork measureWork(const RecordedRun& run)
{
    std::uint64_t lanes = 0, busiest = 0;
    for (const auto& [id, tasks] : run.lanes) {
        const std::uint64_t lane = sumUp(tasks);
        lanes += lane;
        busiest = std::max(busiest, lane);
    }
    return {static_cast<double>(sumUp(run.tasks) + lanes) / 1e9,
            static_cast<double>(sumUp(run.tasks[0])) / 1e9, static_cast<double>(busiest) / 1e9};
}

} // namespace Quillmoran
