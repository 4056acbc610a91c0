#include "platform/BackgroundTask.h"

#include "platform/ParallelLoop.h"
#include "support/Test.h"

#include <atomic>
#include <stdexcept>

namespace Quillmoran::Testing { namespace {

TEST(BackgroundTask, IsCompleteAfterWaitAndCanStartAgain)
{
    BackgroundTask task;
    EXPECT_FALSE(task.isStarted());
    std::atomic<int> sum{0};
    for (int i = 1; i <= 100; ++i) {
        task.start([&, i] { nestedParallelLoop(10, [&](std::size_t) { sum += i; }); });
        EXPECT_TRUE(task.isStarted());
        task.wait();
        EXPECT_FALSE(task.isStarted());
        ASSERT_EQ(sum, 10 * i * (i + 1) / 2);
    }
}

TEST(BackgroundTask, ThrowsInWaitAndIsWaitedForWhenDestroyed)
{
    std::atomic<bool> ran{false};
    {
        BackgroundTask task;
        task.start([] { throw std::runtime_error("bad"); });
        EXPECT_THROW(task.wait(), std::runtime_error);
        task.start([&] {
            ran = true;
            throw std::runtime_error("lost");
        });
    }
    EXPECT_TRUE(ran);
}

}} // namespace Quillmoran::Testing
