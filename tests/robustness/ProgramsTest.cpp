// Programs as processes: killed and interrupted at any time, two with the same output, without standard
// streams.
#include "support/LASClouds.h"
#include "support/Program.h"
#include "support/Random.h"
#include "support/SampleCloud.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::Program;
using Testing::readFile;
using Testing::Result;
using Testing::writeFile;

struct Command
{
    const char* program;
    std::string arguments;
    std::string output;
};

class Processes : public testing::Test
{
protected:
    void SetUp() override
    {
        writeFile(directory / "in.vxl", buildFile(Testing::SampleCloud::make(40000, 1).toFile()));
        writeFile(directory / "in.las", Testing::randomLASFile(7, 4, 40000, 2).build());
        setenv("TMPDIR", directory.path().c_str(), 1);
    }
    void TearDown() override { unsetenv("TMPDIR"); }

    Program start(const Command& command) const
    {
        std::vector<std::string> words;
        std::istringstream stream(command.arguments);
        for (std::string word; stream >> word;)
            words.push_back(word);
        return Program(command.program, directory, words);
    }
    Result shell(const std::string& line) const { return Program("/bin/sh", directory, {"-c", line}).wait(); }
    std::string make(const Command& command) const
    {
        EXPECT_EQ(start(command).wait().status, 0) << command.arguments;
        return readFile(directory / command.output);
    }
    // Files other than the inputs and the output.
    int countOthers(const std::string& output) const
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            const std::string name = entry.path().filename();
            count += name != output && name != "in.vxl" && name != "in.las" && name != "stdout" &&
                     name != "stderr";
        }
        return count;
    }

    Testing::TemporaryDirectory directory;
    const std::vector<Command> commands = {
        {VXUNPACK, "-i in.vxl -o out.txt -cs 500 -j 1", "out.txt"},
        {VXUNPACK, "-i in.vxl -o out.las -cs 500 -j 2", "out.las"},
        {VXUNPACK, "-i in.vxl -o out.laz -cs 500 -j 1", "out.laz"},
        {VXPACK, "-i in.las -o out.vxl -j 2", "out.vxl"},
        {VXINDEX, "-o t.index in.vxl in.las", "t.index"},
    };
};

TEST_F(Processes, LeaveTheOldOutputOrACompleteOneWhenASignalComes)
{
    Testing::Random random(1);
    int numSignals = 0, numEnded = 0;
    for (const Command& command : commands) {
        const auto begin = std::chrono::steady_clock::now();
        const std::string complete = make(command);
        const auto duration =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
        for (const int number :
             {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGKILL, SIGKILL, SIGPIPE, SIGUSR1, SIGALRM, SIGXCPU}) {
            SCOPED_TRACE(command.arguments + " signal " + std::to_string(number));
            writeFile(directory / command.output, std::string("precious"));
            Program program = start(command);
            std::this_thread::sleep_for(
                std::chrono::microseconds(random.below(static_cast<std::uint64_t>(duration.count()))));
            program.signal(number);
            const int status = program.wait().status;
            const std::string now = readFile(directory / command.output);
            EXPECT_TRUE(now == complete || (now == "precious" && status != 0))
                << "status " << status << ", " << now.size() << " bytes";
            EXPECT_TRUE(status == 0 || status == 1 || status == -number) << status;
            ++numSignals;
            numEnded += status != 0;
            EXPECT_TRUE(number == SIGKILL || countOthers(command.output) == 0);
            for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
                if (entry.path().extension() == ".part")
                    std::filesystem::remove(entry.path());
        }
        std::filesystem::remove(directory / command.output);
    }
    std::printf("%d signals, %d of them in time\n", numSignals, numEnded);
}

TEST_F(Processes, NeverMixTheirOutputs)
{
    for (Command command : commands) {
        if (command.program == std::string(VXINDEX))
            continue; // its options make no difference
        Command other = command;
        other.arguments += " -s 2";
        const std::string outputs[] = {make(command), make(other)};
        ASSERT_TRUE(outputs[0] != outputs[1]);
        for (int round = 0; round < 4; ++round) {
            Program first = start(command), second = start(other);
            const int statuses[] = {first.wait().status, second.wait().status};
            const std::string now = readFile(directory / command.output);
            EXPECT_TRUE((now == outputs[0] && statuses[0] == 0) || (now == outputs[1] && statuses[1] == 0))
                << command.arguments << ": " << now.size() << " bytes";
            EXPECT_EQ(statuses[0] + statuses[1], 0);
            EXPECT_EQ(countOthers(command.output), 0);
        }
        std::filesystem::remove(directory / command.output);
    }
}

// Exceeding the limit raises SIGXFSZ.
TEST_F(Processes, ReportAFileThatBecomesTooLarge)
{
    for (const Command& command : commands) {
        if (command.program == std::string(VXINDEX))
            continue; // its output is too small
        const Result result =
            shell(std::string("ulimit -f 16; '") + command.program + "' " + command.arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("File too large path = "), std::string::npos) << result.errors;
        EXPECT_EQ(countOthers(""), 0) << command.arguments;
    }
}

TEST_F(Processes, WriteTextToPipes)
{
    const std::string complete = make(commands.front());
    const std::string line = std::string("'") + VXUNPACK + "' -i in.vxl -o ";
    const std::string got = directory / "got";
    for (const std::string& command : {line + "/dev/stdout | cat >got", line + "/dev/stdout >got",
                                       line + "/proc/self/fd/1 2>stderr | cat >got",
                                       "mkfifo pipe; cat pipe >got & " + line + "pipe >&2; wait $!"}) {
        const Result result = shell(command);
        EXPECT_TRUE(readFile(got) == complete) << command;
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("\n40000 points written\n"), std::string::npos) << result.errors;
    }
    const std::string head = "(" + line + "/dev/stdout; echo $? >status) | head -n 1 >got";
    EXPECT_NE(shell(head).errors.find("Error: Broken pipe path = /dev/stdout\n"), std::string::npos);
    EXPECT_EQ(readFile(directory / "status"), "1\n");
    EXPECT_EQ(shell(line + "pipe -of laz").errors,
              "Error: Unable to create output pipe. LAS output needs a seekable file\n");
}

TEST_F(Processes, StopAtASignalWhereAPipeKeepsThemWaiting)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::vector<std::string> arguments = {"-i", "in.vxl", "-o", "pipe"};
    Result result{-SIGINT, "", ""};
    for (int delay = 100; result.status == -SIGINT && delay < 10000; delay *= 2) { // until it handles signals
        const Program waiting(VXUNPACK, directory, arguments);
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        waiting.signal(SIGINT);
        result = waiting.wait();
    }
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("\nError: operation cancelled.\n"), std::string::npos) << result.errors;

    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK); // never read from
    Program(VXUNPACK, directory, arguments).interrupt("writing", SIGINT);
    ::close(reader);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

// Messages must not be written into an output, and a run must not fail because nobody reads its progress.
TEST_F(Processes, DoWithoutStandardStreams)
{
    for (const Command& command : commands) {
        const std::string complete = make(command);
        const std::string line = std::string("'") + command.program + "' " + command.arguments;
        EXPECT_EQ(shell(line + " <&- >&- 2>&-").status, 0);
        EXPECT_TRUE(readFile(directory / command.output) == complete) << command.arguments;
        std::filesystem::remove(directory / command.output);
        EXPECT_EQ(shell("(" + line + " 2>/dev/null; echo $? >&2) | :").errors, "0\n") << command.arguments;
        EXPECT_TRUE(readFile(directory / command.output) == complete) << command.arguments;
        std::filesystem::remove(directory / command.output);
    }
}

TEST_F(Processes, NoticeThatAReportIsLost)
{
    make(commands.back());
    for (const std::string& report :
         {std::string("'") + VXINDEX + "' -o t.index -l", std::string("'") + VXINFO + "' in.vxl"}) {
        for (const char* lost : {" >/dev/full", " >&-"}) {
            const Result result = shell(report + lost);
            EXPECT_EQ(result.status, 1) << report << lost;
            EXPECT_EQ(result.errors, "Error: cannot write the report\n");
        }
    }
}

} // namespace
} // namespace Quillmoran
