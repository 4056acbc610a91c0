#include "platform/TaskLanes.h"

#include "platform/ParallelLoop.h"
#include "support/Test.h"

#include <array>
#include <atomic>
#include <memory>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran::Testing { namespace {

constexpr std::size_t numLanes = 5;
constexpr std::size_t numSlots = 3;

void runLanes(std::size_t numStepsPerLane)
{
    // By lane: written by its steps only, which must not overlap.
    std::array<std::size_t, numLanes> numSteps{};
    std::array<std::array<std::atomic<std::size_t>, numLanes>, numSlots> sums{};
    TaskLanes lanes(numLanes, numSlots, [&](std::size_t slot, std::size_t lane) {
        EXPECT_EQ(numSteps[lane]++ % numSlots, slot);
        nestedParallelLoop(lane * 20, [&](std::size_t i) { sums[slot][lane] += i; });
    });
    std::size_t numFinished = 0;
    for (std::size_t step = 0; step < numStepsPerLane || lanes.numStarted() != 0;) {
        while (step < numStepsPerLane && lanes.numStarted() < numSlots) {
            EXPECT_EQ(lanes.nextSlot(), step++ % numSlots);
            lanes.start();
        }
        const std::size_t slot = lanes.finish();
        ASSERT_EQ(slot, numFinished++ % numSlots);
        for (std::size_t lane = 0; lane < numLanes; ++lane)
            ASSERT_EQ(sums[slot][lane].exchange(0), lane == 0 ? 0 : lane * 20 * (lane * 20 - 1) / 2);
    }
    EXPECT_EQ(numFinished, numStepsPerLane);
}

TEST(TaskLanes, RunsTheStepsOfEachLaneInOrderAndFinishesSlotsWithAllLanes)
{
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    for (const int threads : {1, 4})
        tbb::task_arena(threads).execute([] { runLanes(300); });
}

TEST(TaskLanes, RethrowsTheFailureOfTheLowestLaneAndEndsLanesThatFail)
{
    for (int repeat = 0; repeat < 20; ++repeat) {
        std::array<int, numLanes> numSteps{};
        auto lanes = std::make_unique<TaskLanes>(numLanes, numSlots, [&](std::size_t, std::size_t lane) {
            if (++numSteps[lane] == 2 && lane % 2 == 1)
                QM_THROW(ErrorCode::General, "lane %zu", lane);
        });
        for (std::size_t i = 0; i < numSlots; ++i)
            lanes->start();
        EXPECT_EQ(lanes->finish(), 0u);
        EXPECT_EQ(failureOf([&] { lanes->finish(); }), "-1 lane 1");
        lanes.reset(); // waits for the third slot
        EXPECT_EQ(numSteps, (std::array<int, numLanes>{3, 2, 3, 2, 3}));
    }
}

}} // namespace Quillmoran::Testing
