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
    int ran = 0;
    const auto fail = [&] {
        ++ran;
        throw std::runtime_error("bad");
    };
    auto task = std::make_unique<BackgroundTask>();
    task->start(fail);
    EXPECT_THROW(task->wait(), std::runtime_error);
    task->start(fail);
    task.reset();
    EXPECT_EQ(ran, 2);
}

}} // namespace Quillmoran::Testing
