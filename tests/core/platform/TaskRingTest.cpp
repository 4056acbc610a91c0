#include "platform/TaskRing.h"

#include "support/Test.h"

#include <atomic>
#include <stdexcept>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <thread>

namespace Quillmoran::Testing { namespace {

// Results in order, also after one that failed, with and without threads that help.
TEST(TaskRing, FinishesTasksInOrderAndRethrowsTheirErrors)
{
    const tbb::global_control allowThreads(tbb::global_control::max_allowed_parallelism, 4);
    for (const int threads : {1, 2, 4})
        tbb::task_arena(threads).execute([&] {
            constexpr std::size_t numSlots = 3, numTasks = 600, bad = 300;
            std::size_t slots[numSlots] = {}, finished = 0;
            TaskRing ring(numSlots, [&](std::size_t slot) {
                if (slots[slot] == bad)
                    throw std::runtime_error("bad");
                slots[slot] *= 2;
            });
            const auto finish = [&] {
                if (finished == bad)
                    EXPECT_THROW(ring.finish(), std::runtime_error);
                else
                    EXPECT_EQ(slots[ring.finish()], 2 * finished);
                ++finished;
            };
            for (std::size_t task = 0; task < numTasks; ++task) {
                if (ring.numStarted() == numSlots)
                    finish();
                slots[ring.nextSlot()] = task;
                ring.start();
            }
            while (ring.numStarted() != 0)
                finish();
            EXPECT_EQ(finished, numTasks);
        });
}

TEST(TaskRing, WaitsForItsTasksWhenDestroyed)
{
    std::atomic<int> begun{0}, ended{0};
    for (int i = 0; i < 100; ++i) {
        TaskRing ring(5, [&](std::size_t) {
            ++begun;
            std::this_thread::yield();
            ++ended;
        });
        for (int task = 0; task < 5; ++task)
            ring.start();
    }
    EXPECT_EQ(begun, ended);
}

}} // namespace Quillmoran::Testing
