#include "platform/OutputQueue.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace Quillmoran {
namespace {

using Queue = OutputQueue<std::string>;

TEST(OutputQueue, WritesEverythingInOrderWithFewSlices)
{
    std::string written;
    std::atomic<int> pending{0};
    int maxPending = 0;
    Queue queue(
        [&](const std::string& slice) {
            written += slice + ' ';
            --pending;
        },
        3);
    std::string expected;
    for (int i = 0; i < 500; ++i) {
        std::string first = queue.take();
        std::string second = queue.take();
        pending += 2;
        maxPending = std::max<int>(maxPending, pending);
        first = std::to_string(i);
        second = "and";
        expected += first + " and ";
        queue.put(std::move(first));
        queue.put(std::move(second));
    }
    queue.finish();
    EXPECT_EQ(written, expected);
    EXPECT_LE(maxPending, 3 + 1); // a slice is counted as written just before it is free
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

} // namespace
} // namespace Quillmoran
