#include "platform/OutputQueue.h"

#include "support/Test.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace Quillmoran::Testing { namespace {

using Queue = OutputQueue<std::string>;

TEST(OutputQueue, WritesEverythingInOrderWithFewSlices)
{
    std::string written, expected;
    int numNew = 0;
    Queue queue([&](const std::string& slice) { written += slice + ' '; }, 3);
    for (int i = 0; i < 1000; ++i) {
        std::string slice = queue.take();
        numNew += slice.empty(); // others have their earlier contents
        slice = std::to_string(i);
        expected += slice + ' ';
        queue.put(std::move(slice));
    }
    queue.finish();
    EXPECT_EQ(written, expected);
    EXPECT_LE(numNew, 3);
}

TEST(OutputQueue, WaitsForASliceAndDropsThoseThatWaitWhenDestroyed)
{
    constexpr std::size_t maxSlices = 10;
    std::size_t numWritten = 0;
    {
        const auto writeSlowly = [&](const std::string&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ++numWritten;
        };
        Queue queue(writeSlowly, maxSlices);
        for (std::size_t i = 0; i < maxSlices; ++i) {
            EXPECT_EQ(queue.take(), "");
            queue.put("full");
        }
        EXPECT_EQ(queue.take(), "full") << "not another slice";
    }
    EXPECT_LT(numWritten, maxSlices);
}

TEST(OutputQueue, RethrowsAFailureInEveryCall)
{
    const auto failing = [](const std::string&) { throw std::runtime_error("disk full"); };
    Queue taking(failing, 1);
    taking.put(taking.take());
    EXPECT_THROW(taking.take(), std::runtime_error); // waits for the slice that fails
    EXPECT_THROW(taking.put({}), std::runtime_error);
    Queue finishing(failing, 5);
    finishing.put("x");
    EXPECT_THROW(finishing.finish(), std::runtime_error);
}

}} // namespace Quillmoran::Testing
