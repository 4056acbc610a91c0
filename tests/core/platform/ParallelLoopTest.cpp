#include "platform/ParallelLoop.h"

#include "support/Test.h"

#include <atomic>

namespace Quillmoran::Testing { namespace {

TEST(ParallelLoop, RunsEveryIterationOnceInNestedLoops)
{
    std::vector<std::atomic<int>> runs(30 * 20);
    parallelLoop(30, [&](std::size_t outer) {
        nestedParallelLoop(20, [&](std::size_t inner) { ++runs[20 * outer + inner]; });
    });
    parallelLoop(0, [&](std::size_t) { FAIL(); });
    for (const auto& count : runs)
        EXPECT_EQ(count, 1);
}

TEST(ParallelLoop, RethrowsTheExceptionOfTheLowestIndexAfterAllHaveRun)
{
    for (int repeat = 0; repeat < 20; ++repeat) {
        std::atomic<int> runs{0};
        EXPECT_EQ(failureOf([&] {
                      parallelLoop(50, [&](std::size_t i) {
                          ++runs;
                          if (i % 10 == 7)
                              QM_THROW(ErrorCode::General, "%zu", i);
                      });
                  }),
                  "-1 7");
        EXPECT_EQ(runs, 50);
    }
}

}} // namespace Quillmoran::Testing
