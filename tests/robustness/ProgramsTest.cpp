// Programs as processes: killed and interrupted at any time, two with the same output, without standard
// streams.
#include "support/LASClouds.h"
#include "support/Program.h"
#include "support/SampleCloud.h"
#include "support/Terminal.h"

#include <sys/stat.h>
#include <thread>

namespace Quillmoran::Testing { namespace {

struct Command
{
    std::string line;
    std::string output;
};

class Processes : public ProgramTest
{
protected:
    void SetUp() override
    {
        writeFile(directory / "in.vxl", buildFile(SampleCloud::make(40000, 1).toFile()));
        writeFile(directory / "in.las", randomLASFile(7, 4, 40000, 2).build());
        setenv("TMPDIR", directory.path().c_str(), 1);
    }
    void TearDown() override { unsetenv("TMPDIR"); }

    // Returns the bytes of the output.
    std::string make(const Command& command) const
    {
        EXPECT_EQ(run(command.line).status, 0) << command.line;
        return readFile(directory / command.output);
    }
    // Files other than the inputs and the output.
    int countOthers(const std::string& output) const
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            const std::string name = entry.path().filename();
            count += name != output && entry.path().stem() != "in" && name != "stdout" && name != "stderr";
        }
        return count;
    }

    // Sends a signal in an activity, and expects the error of an interrupted run.
    void interrupt(const std::string& line, const std::string& activity, int number) const
    {
        TerminalProgram program("exec " + line, directory);
        program.interrupt(activity, number);
        const TerminalRun result = program.wait();
        EXPECT_EQ(result.status, line.rfind("vxdiff", 0) == 0 ? 2 : 1);
        const std::regex expected(
            "\nInterrupt detected.  Shutting down application...\n"
            "([^\n]*%[^\n]*\n)?\n?Error: [^:]*peration cancelled.\n$"); // not of one file
        EXPECT_TRUE(std::regex_search(result.screen, expected)) << result.screen;
    }

    const std::vector<Command> commands = {
        {"vxunpack -i in.vxl -o out.txt -cs 500 -j 1", "out.txt"},
        {"vxunpack -i in.vxl -o out.las -cs 500 -j 2", "out.las"},
        {"vxunpack -i in.vxl -o out.laz -cs 500 -j 1", "out.laz"},
        {"vxpack -i in.las -o out.vxl -j 2", "out.vxl"},
        {"vxview in.las -o out.png -j 2", "out.png"},
        {"vxindex -o t.index in.vxl in.las", "t.index"},
    };
};

TEST_F(Processes, LeaveTheOldOutputOrACompleteOneWhenASignalComes)
{
    Random random(1);
    for (const Command& command : commands) {
        const auto begin = std::chrono::steady_clock::now();
        const std::string complete = make(command);
        const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - begin;
        for (const int number :
             {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGKILL, SIGKILL, SIGPIPE, SIGUSR1, SIGALRM, SIGXCPU}) {
            SCOPED_TRACE(command.line + " signal " + std::to_string(number));
            directory.file(command.output, "precious");
            const Program program = start(command.line);
            std::this_thread::sleep_for(duration * random.real());
            program.signal(number);
            const int status = program.wait().status;
            const std::string now = readFile(directory / command.output);
            EXPECT_TRUE(now == complete || (now == "precious" && status != 0))
                << "status " << status << ", " << now.size() << " bytes";
            EXPECT_TRUE(status == 0 || status == 1 || status == -number) << status;
            EXPECT_TRUE(number == SIGKILL || countOthers(command.output) == 0);
            for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
                if (entry.path().extension() == ".part")
                    std::filesystem::remove(entry.path());
        }
        std::filesystem::remove(directory / command.output);
    }
}

// Each program in each of its activities.
TEST_F(Processes, StopAtASignalWithoutATrace)
{
    writeFile(directory / "in.las", randomLASFile(7, 4, 1200000, 2).build());
    writeFile(directory / "in.vxl", buildFile(SampleCloud::make(400000, 1).toFile()));
    std::string lines;
    for (int i = 0; i < 1000000; ++i)
        lines += "1234567.89 1234567.89 1.5\n";
    directory.file("in.txt", lines);
    const std::tuple<Command, const char*, int> cases[] = {
        {{"vxpack -i in.las -o out.vxl -s 1.5 -j 1", "out.vxl"}, "surveying", SIGINT},
        {{"vxpack -i in.las -o out.vxl -j 1", "out.vxl"}, "writing", SIGTERM},
        {{"vxunpack -i in.vxl -o out.txt -cs 200 -j 1", "out.txt"}, "writing", SIGINT},
        {{"vxunpack -i in.vxl -o out.las -cs 200 -j 1", "out.las"}, "writing", SIGTERM},
        {{"vxunpack -i in.vxl -o out.laz -cs 200 -j 1", "out.laz"}, "writing", SIGHUP},
        {{"vxindex -o t.index -p xyz in.vxl in.txt in.las", "t.index"}, "indexing", SIGINT},
        {{"vxinfo -check in.vxl", "none"}, "reading", SIGINT},
        {{"vxview in.las -o out.png -j 1 -size 9000", "out.png"}, "drawing", SIGINT},
        {{"vxdiff -unordered in.las in.txt -p xyz -j 1", "none"}, "sorting", SIGTERM},
    };
    for (const auto& [command, activity, number] : cases) {
        SCOPED_TRACE(command.line);
        directory.file(command.output, "precious");
        interrupt(command.line, activity, number);
        EXPECT_EQ(countOthers(command.output), 0);
        EXPECT_TRUE(readFile(directory / command.output) == "precious");
        std::filesystem::remove(directory / command.output);
    }
}

TEST_F(Processes, NeverMixTheirOutputs)
{
    for (const Command& command : {commands[0], commands[1], commands[2], commands[3]}) {
        const Command other = {command.line + " -s 2", command.output};
        const std::string outputs[] = {make(command), make(other)};
        ASSERT_TRUE(outputs[0] != outputs[1]);
        for (int round = 0; round < 4; ++round) {
            const Program first = start(command.line), second = start(other.line);
            EXPECT_EQ(first.wait().status, 0);
            EXPECT_EQ(second.wait().status, 0);
            const std::string now = readFile(directory / command.output);
            EXPECT_TRUE(now == outputs[0] || now == outputs[1])
                << command.line << ": " << now.size() << " bytes";
            EXPECT_EQ(countOthers(command.output), 0);
        }
        std::filesystem::remove(directory / command.output);
    }
}

// Exceeding the limit raises SIGXFSZ.
TEST_F(Processes, ReportAFileThatBecomesTooLarge)
{
    for (const Command& command : {commands[0], commands[1], commands[2], commands[3]}) {
        const Result result = shell("ulimit -f 16; " + command.line);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("File too large path = "), std::string::npos) << result.errors;
        EXPECT_EQ(countOthers(""), 0) << command.line;
    }
}

TEST_F(Processes, StopAtASignalWhereAPipeKeepsThemWaiting)
{
    const std::string pipe = directory / "pipe", line = "vxunpack -i in.vxl -o pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& command : {line, std::string("vxpack pipe -o out.vxl")}) {
        Result result{-SIGINT, "", ""};
        for (int delay = 100; result.status == -SIGINT && delay < 10000;
             delay *= 2) { // until it handles them
            const Program waiting = start(command);
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
            waiting.signal(SIGINT);
            result = waiting.wait();
        }
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("\nError: operation cancelled.\n"), std::string::npos) << result.errors;
        EXPECT_EQ(countOthers("pipe"), 0) << command;
    }

    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK); // never read from
    interrupt(line, "writing", SIGINT);
    ::close(reader);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

// Messages must not be written into an output, and a run must not fail because nobody reads its progress.
TEST_F(Processes, DoWithoutStandardStreams)
{
    for (const Command& command : commands) {
        const std::string complete = make(command);
        for (const std::string& line : {command.line + " <&- >&- 2>&-; echo $? >&2",
                                        "(" + command.line + " 2>errors; echo $? >&2) | :"}) {
            std::filesystem::remove(directory / command.output);
            EXPECT_EQ(shell(line).errors, "0\n") << line;
            EXPECT_TRUE(readFile(directory / command.output) == complete) << line;
        }
        std::filesystem::remove(directory / command.output);
    }
}

TEST_F(Processes, NoticeThatAReportIsLost)
{
    make(commands.back());
    // The report of the file is longer than its limit of 1 KiB at most.
    for (const std::string lost :
         {"vxindex -o t.index -l >&-", "vxinfo in.vxl >&-",
          "trap '' XFSZ; ulimit -f 1; vxinfo in.vxl >report", "vxdiff in.vxl in.vxl >&-"}) {
        const Result result = shell(lost);
        EXPECT_EQ(result.status, lost.find("vxdiff") == 0 ? 2 : 1) << lost;
        EXPECT_EQ(result.errors, "Error: cannot write the report\n");
    }
}

}} // namespace Quillmoran::Testing
