#include "platform/TaskTrace.h"

#include "platform/BackgroundTask.h"
#include "platform/OutputQueue.h"
#include "platform/ParallelLoop.h"
#include "support/Test.h"

#include <map>
#include <mutex>

namespace Quillmoran::Testing { namespace {

// Counts what is noted about each task and lane.
class CountingTrace final : public TaskTrace
{
public:
    CountingTrace() { set(this); }
    ~CountingTrace() { set(nullptr); }

    void note(Kind kind, std::uint64_t id, std::uint64_t count) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++numNotes[kind];
        if (kind == LANE_WAIT)
            laneWaits.push_back(count);
        if (kind == ADD || kind == ADD_ISOLATED || kind == BEGIN || kind == WAIT)
            for (std::uint64_t task = id; task < id + count; ++task)
                ++tasks[task][kind == ADD ? ADD_ISOLATED : kind];
    }

    std::map<std::uint64_t, std::map<Kind, int>> tasks;
    std::map<Kind, int> numNotes;
    std::vector<std::uint64_t> laneWaits;

private:
    std::mutex m_mutex;
};

TEST(TaskTrace, HasEveryTaskOnceAndTheWaitsForIt)
{
    CountingTrace trace;
    BackgroundTask task;
    task.start([] { nestedParallelLoop(5, [](std::size_t) {}); });
    parallelLoop(3, [](std::size_t) { nestedParallelLoop(1, [](std::size_t) {}); });
    task.wait();
    EXPECT_EQ(trace.tasks.size(), 9u);
    for (const auto& [id, notes] : trace.tasks)
        EXPECT_EQ(notes, (std::map<TaskTrace::Kind, int>{
                             {TaskTrace::ADD_ISOLATED, 1}, {TaskTrace::WAIT, 1}, {TaskTrace::BEGIN, 1}}));
    EXPECT_EQ(trace.numNotes[TaskTrace::ADD], 1) << "the nested loop";
    EXPECT_EQ(trace.numNotes[TaskTrace::END], 9);
    EXPECT_EQ(trace.numNotes[TaskTrace::RESUME], 3);
}

TEST(TaskTrace, HasTheLimitOfAQueue)
{
    CountingTrace trace;
    OutputQueue<std::string> queue([](const std::string&) {}, 3);
    for (int i = 0; i < 5; ++i)
        queue.put(queue.take());
    queue.finish();
    EXPECT_EQ(trace.laneWaits, (std::vector<std::uint64_t>{1, 2, 5}))
        << "the slices that must be written first";
    EXPECT_EQ(trace.numNotes[TaskTrace::LANE_ADD], 5);
    EXPECT_EQ(trace.numNotes[TaskTrace::LANE_BEGIN], 5);
    EXPECT_EQ(trace.numNotes[TaskTrace::END], 5);
}

}} // namespace Quillmoran::Testing
