#include "platform/TaskTrace.h"

#include "platform/OutputQueue.h"
#include "platform/ParallelLoop.h"
#include "platform/TaskLanes.h"
#include "platform/TaskRing.h"
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
        const bool adds = kind == ADD || kind == ADD_ISOLATED || kind == ADD_TO || kind == ADD_NEXT;
        if (adds || kind == BEGIN || kind == WAIT)
            for (std::uint64_t task = id; task < id + (kind == ADD_TO || kind == ADD_NEXT ? 1 : count);
                 ++task)
                ++tasks[task][adds ? ADD : kind];
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
    TaskLanes lanes(2, 2, [](std::size_t, std::size_t) { nestedParallelLoop(5, [](std::size_t) {}); });
    lanes.start();
    lanes.start();
    parallelLoop(3, [](std::size_t) { nestedParallelLoop(1, [](std::size_t) {}); });
    lanes.finish();
    lanes.finish();
    TaskRing ring(2, [](std::size_t) {});
    for (int i = 0; i < 3; ++i) {
        ring.start();
        ring.finish();
    }
    EXPECT_EQ(trace.tasks.size(), 30u);
    for (const auto& [id, notes] : trace.tasks)
        EXPECT_EQ(notes, (std::map<TaskTrace::Kind, int>{
                             {TaskTrace::ADD, 1}, {TaskTrace::WAIT, 1}, {TaskTrace::BEGIN, 1}}));
    EXPECT_EQ(trace.numNotes[TaskTrace::ADD], 4) << "the nested loops";
    EXPECT_EQ(trace.numNotes[TaskTrace::END], 30);
    EXPECT_EQ(trace.numNotes[TaskTrace::RESUME], 10);
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
