#include "scaling/Recorder.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <utility>

namespace Quillmoran {

namespace {

// A task that a thread has begun. While it waits, the same thread can run others.
struct Frame
{
    RecordedTask* task;
    bool isWaiting = false;
};

struct ThreadState
{
    std::vector<Frame> frames;
    std::int64_t since = 0; // CPU time of the thread at the end of its last note
};

thread_local ThreadState threadState;

std::int64_t cpuNanoseconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{1000000000} * time.tv_sec + time.tv_nsec;
}

} // namespace

Recorder::Recorder() : m_firstId(makeIds(1))
{
    m_run.tasks.resize(1);
}

RecordedRun Recorder::record(const std::function<void()>& run)
{
    Recorder recorder;
    threadState.frames = {{&recorder.m_run.tasks[0]}};
    threadState.since = cpuNanoseconds();
    set(&recorder);
    run();
    recorder.note(RESUME, 0, 0); // the time since the last note
    set(nullptr);
    if (threadState.frames.size() != 1)
        throw std::logic_error("a task has not ended");
    threadState.frames.clear();
    return std::move(recorder.m_run);
}

void Recorder::add(RecordedTask* parent, Kind kind, std::uint64_t id, std::uint64_t count)
{
    std::uint64_t group = kind == ADD ? parent->group : id;
    if (kind == ADD_TO || kind == ADD_NEXT)
        group = std::exchange(count, 1) - m_firstId;
    m_run.tasks.resize(std::max<std::size_t>(m_run.tasks.size(), id + count));
    for (std::uint64_t task = id; task < id + count; ++task) {
        m_run.tasks[task].group = group;
        m_run.tasks[task].first = kind == ADD_TO ? group : id;
        m_run.tasks[task].isInOrder = kind == ADD_NEXT;
        m_run.tasks[task].isGated = kind == ADD_TO;
    }
    parent->steps.push_back({RecordedStep::ADD, id, count});
}

void Recorder::note(Kind kind, std::uint64_t id, std::uint64_t count)
{
    ThreadState& thread = threadState;
    const auto spent = static_cast<std::uint64_t>(cpuNanoseconds() - thread.since);
    const std::lock_guard<std::mutex> lock(m_mutex);
    Frame* const frame = thread.frames.empty() ? nullptr : &thread.frames.back();
    if (frame && !frame->isWaiting)
        frame->task->steps.push_back({RecordedStep::RUN, 0, spent});
    id -= m_firstId;
    switch (kind) {
    case ADD:
    case ADD_ISOLATED:
    case ADD_TO:
    case ADD_NEXT:
        add(frame->task, kind, id, count);
        break;
    case OPEN:
        frame->task->steps.push_back({RecordedStep::OPEN, id, 1});
        break;
    case WAIT:
    case LANE_WAIT:
        frame->task->steps.push_back(
            {kind == WAIT ? RecordedStep::WAIT : RecordedStep::LANE_WAIT, id, count});
        frame->isWaiting = true;
        break;
    case RESUME:
        frame->isWaiting = false;
        break;
    case BEGIN:
        thread.frames.push_back({&m_run.tasks.at(id)});
        break;
    case END:
        thread.frames.pop_back();
        break;
    case LANE_ADD:
        m_run.lanes[id].emplace_back();
        frame->task->steps.push_back({RecordedStep::LANE_ADD, id, 1});
        break;
    case LANE_BEGIN:
        thread.frames.push_back({&m_run.lanes[id].at(m_begun[id]++)});
        break;
    }
    thread.since = cpuNanoseconds();
}

} // namespace Quillmoran
