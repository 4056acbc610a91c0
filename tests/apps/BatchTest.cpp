// Conversions of several files at the same time.
#include "utils/program/Batch.h"

#include "support/Test.h"
#include "utils/program/Program.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/Base.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace Quillmoran::Testing { namespace {

class Batch : public testing::Test
{
protected:
    std::vector<Utils::Conversion> plan(int count) const
    {
        for (int i = 0; i < count; ++i)
            directory.file("in/" + std::to_string(i) + ".las", std::string(10, 'x'));
        return Utils::planConversions({directory / "in"}, 0, directory / "out", ".vxl",
                                      [](const char*) { return true; });
    }

    const TemporaryDirectory directory;
};

TEST_F(Batch, ConvertsSeveralFilesAtTheSameTimeAndListsFailures)
{
    std::mutex mutex;
    std::condition_variable changed;
    int numStarted = 0;
    const auto convert = [&](const Utils::Conversion& conversion, ProgressDelegate& progress) {
        {
            // The first two wait for each other.
            std::unique_lock<std::mutex> lock(mutex);
            ++numStarted;
            changed.notify_all();
            EXPECT_TRUE(changed.wait_for(lock, std::chrono::minutes(1), [&] { return numStarted >= 2; }));
        }
        progress.setTotal(10);
        for (int i = 0; i < 10; ++i)
            progress.updateCompleted(1, "converting");
        Utils::warn(conversion.input);
        if (conversion.input.find("/7.las") != std::string::npos)
            QM_THROW(ErrorCode::General, "seven is refused");
        writeFile(conversion.output, std::string(5, 'y'));
        return Utils::Converted{3, 5};
    };
    const auto conversions = plan(40);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    Utils::BatchResult result;
    ThreadLimit(2).execute([&] { result = Utils::convertAll(conversions, 2, false, convert); });
    EXPECT_FALSE(Utils::reportBatch(result, "1.000 s, 1 points/s"));
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 40) << output;
    EXPECT_NE(output.find("39 files converted, 0 up to date, 1 failed: 117 points written, 195 bytes,"),
              std::string::npos)
        << output;
    const std::string seven = directory / "in/7.las";
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 40 + 3) << errors;
    EXPECT_NE(errors.find("Error: seven is refused path = " + seven + '\n'), std::string::npos) << errors;
    EXPECT_TRUE(errors.ends_with("\nError: 1 of 40 files were not converted:\n  " + seven + '\n')) << errors;

    // Only the file that failed is converted again.
    std::atomic<int> numAgain = 0;
    result = Utils::convertAll(conversions, 2, false, [&](const Utils::Conversion&, ProgressDelegate&) {
        ++numAgain;
        return Utils::Converted{};
    });
    EXPECT_EQ(numAgain, 1);
    EXPECT_EQ(result.numUpToDate, 39u);

    // A cancelled file ends the run.
    const auto cancel = [](const Utils::Conversion&, ProgressDelegate&) -> Utils::Converted {
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    };
    EXPECT_THROW(Utils::convertAll(conversions, 2, true, cancel), Error);
}

}} // namespace Quillmoran::Testing
