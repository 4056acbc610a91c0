// Runs the programs with every system call, and every allocation, failing in turn. They run in this process, so
// that sanitizers detect leaks after a failure.
#include "robustness/Faults.h"

#include "cli/QMCmdLine.h"
#include "info/Inspector.h"
#include "pack/Packer.h"
#include "platform/ByteOrder.h"
#include "support/LASClouds.h"
#include "support/SampleCloud.h"
#include "support/TemporaryDirectory.h"
#include "tileindex/TileIndexer.h"
#include "transcode/Transcoder.h"
#include "utils/program/Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::Call;
using Testing::Fault;
using Testing::Faults;
using Testing::readFile;
using Testing::writeFile;

using Main = int (*)(int argc, const char* const* argv);

template <class SomeProgram>
int mainOf(int argc, const char* const* argv)
{
    return Utils::runProgram([argc, argv] {
        std::optional<SomeProgram> program;
        {
            const Testing::SparedAllocations spared; // which end the process
            program.emplace();
            program->parse(argc, argv);
        }
        return program->run();
    });
}

constexpr Main vxunpack = mainOf<Transcoder>, vxpack = mainOf<Packer>, vxindex = mainOf<TileIndexer>,
               vxinfo = mainOf<Inspector>;

struct Outcome
{
    int status;
    std::string output, errors;
};

// A command line: words with a dot are names of files in the directory.
struct Command
{
    Main program;
    const char* arguments;
};

using Contents = std::map<std::string, std::string>; // by the path below the directory

// All numbers up to a count, or the first, the last and some others.
std::vector<long> sample(long count, long maxCount)
{
    std::vector<long> numbers;
    for (long n = 1; n <= count && maxCount > 0; ++n)
        if (count <= maxCount || n <= maxCount / 3 || n > count - maxCount / 3 ||
            n % (3 * count / maxCount) == 0)
            numbers.push_back(n);
    return numbers;
}

std::string currentFault; // for the message if a fault ends this process
const int messages = ::dup(STDERR_FILENO);
extern "C" void printFault(int)
{
    [[maybe_unused]] const auto written = ::write(messages, currentFault.data(), currentFault.size());
}

class Robustness : public testing::Test
{
protected:
    void SetUp() override
    {
        std::signal(SIGABRT, printFault);
        std::signal(SIGSEGV, [](int number) {
            printFault(number);
            std::_Exit(1);
        });
        std::filesystem::create_directory(directory / "tmp");
        setenv("TMPDIR", (directory / "tmp").c_str(), 1);
        writeFile(directory / "a.vxl", buildFile(Testing::SampleCloud::make(1500, 1).toFile()));
        writeFile(directory / "b.las", Testing::randomLASFile(7, 4, 900, 2).build());
        writeFile(directory / "d.txt", std::string("1.5 2 3 4\n5 6 7 8\n9 10 11 12\n"));
        writeFile(directory / "big.las", Testing::randomLASFile(7, 4, 12000, 2).build());
        ASSERT_EQ(run({vxunpack, "-i a.vxl -o c.laz -cs 300"}).status, 0);
    }
    void TearDown() override
    {
        unsetenv("TMPDIR");
        RecordProperty("faults", std::to_string(m_numFaults));
        std::printf("%ld faults\n", m_numFaults);
    }

    std::vector<std::string> split(const Command& command) const
    {
        std::vector<std::string> words = {"program"};
        std::istringstream stream(command.arguments);
        for (std::string word; stream >> word;)
            words.push_back(word.find('.') != std::string::npos ? directory / word : word);
        return words;
    }

    // Runs a program with a fault.
    Outcome run(const Command& command, const Fault& fault = {Call::Open, 0, 0})
    {
        const std::vector<std::string> words = split(command);
        std::vector<const char*> argv;
        for (const std::string& word : words)
            argv.push_back(word.c_str());
        const std::string paths[] = {outside / "stdout", outside / "stderr"};
        int saved[2];
        for (const int stream : {1, 2}) {
            std::fflush(stream == 1 ? stdout : stderr);
            saved[stream - 1] = ::dup(stream);
            const int file = ::open(paths[stream - 1].c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            ::dup2(file, stream);
            ::close(file);
        }
        int status = 0;
        {
            const Faults faults(directory.path(), fault);
            status = command.program(static_cast<int>(argv.size()), argv.data());
        }
        for (const int stream : {1, 2}) {
            std::fflush(stream == 1 ? stdout : stderr);
            ::dup2(saved[stream - 1], stream);
            ::close(saved[stream - 1]);
        }
        m_numFaults += Faults::happened();
        return {status, readFile(paths[0]), readFile(paths[1])};
    }

    Contents contents() const
    {
        Contents files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
            if (entry.is_regular_file())
                files[entry.path().lexically_relative(directory.path()).string()] = readFile(entry.path());
        // An index holds the modification time of an overview that was just written.
        struct stat status;
        if (files.count("o.las") && files.count("t.index") &&
            ::stat((directory / "o.las").c_str(), &status) == 0) {
            unsigned char time[8];
            storeBigEndian(time, static_cast<std::int64_t>(status.st_mtim.tv_sec));
            std::string& index = files["t.index"];
            const std::size_t found = index.rfind(std::string(std::begin(time), std::end(time)));
            if (found != std::string::npos)
                index.replace(found, sizeof time, sizeof time, '\0');
        }
        return files;
    }

    // The outputs of a command before and after it, and in between if it writes one twice.
    struct Expected
    {
        Contents before, between, after;
        Outcome clean;
    };

    void restore(const Contents& files) const
    {
        for (const auto& [name, content] : contents())
            if (!files.count(name))
                std::filesystem::remove(directory / name);
        for (const auto& [name, content] : files)
            if (readFile(directory / name) != content)
                writeFile(directory / name, content);
    }

    // A write that fails is reported with the system's reason and a name that the user knows.
    void checkReason(const Outcome& outcome, const Fault& fault) const
    {
        if (outcome.status == 0 || fault.call != Call::Write || fault.error <= 0)
            return;
        const std::string reason = std::strerror(fault.error) + std::string(" path = ");
        const std::size_t found = outcome.errors.find(reason + directory.path());
        ASSERT_NE(found, std::string::npos) << outcome.errors;
        const std::string name = outcome.errors.substr(found + reason.size() + directory.path().size());
        for (const char* known :
             {"/out.txt\n", "/out.las\n", "/out.laz\n", "/out.vxl\n", "/o.las\n", "/t.index\n", "/tmp\n"})
            if (name == known)
                return;
        ADD_FAILURE() << outcome.errors;
    }

    // Every file is either old or new, and after success it is new.
    void check(const Expected& expected, const Outcome& outcome) const
    {
        const Contents now = contents();
        if (outcome.status == 0) {
            EXPECT_EQ(outcome.output, expected.clean.output);
            EXPECT_EQ(outcome.errors, expected.clean.errors);
            EXPECT_TRUE(now == expected.after) << "incomplete";
        } else {
            EXPECT_EQ(outcome.status, 1);
            std::string text = outcome.errors;
            while (text.rfind("Warning: ", 0) == 0 &&
                   expected.clean.errors.find(text.substr(0, text.find('\n'))) != std::string::npos)
                text.erase(0, text.find('\n') + 1);
            const bool isLine = text.rfind("Error: ", 0) == 0 && text.find('\n') == text.size() - 1;
            // vxinfo reports a damaged file without failing itself.
            EXPECT_TRUE(isLine || (text.empty() && outcome.output.find("problem") != std::string::npos))
                << text << outcome.output;
        }
        for (const auto& [name, content] : now) {
            const auto isOf = [&, &name = name, &content = content](const Contents& files) {
                const auto found = files.find(name);
                return found != files.end() && found->second == content;
            };
            EXPECT_TRUE(isOf(expected.before) || isOf(expected.between) || isOf(expected.after))
                << name << " is neither old nor complete, " << content.size() << " bytes";
        }
        for (const auto& [name, content] : expected.before)
            EXPECT_TRUE(now.count(name)) << name << " is lost";
    }

    Testing::TemporaryDirectory directory, outside;
    long m_numFaults = 0;
};

TEST_F(Robustness, EveryCallThatFailsEndsInAnErrorOrIsMadeUpFor)
{
    const struct
    {
        Command command;
        const char* output = "";
        long maxAllocations = 100; // that fail, single ones
        long maxFaults = 15;       // of every other kind
        const char* between = "";  // arguments that write an intermediate version
    } cases[] = {
        {{vxunpack, "-i a.vxl -o out.txt -cs 300 -j 1 -crop 0 9e9 0 9e9 0 9e9 -ofld xyzit"}, "out.txt"},
        {{vxunpack, "-i a.vxl -o out.las -cs 300 -j 1"}, "out.las"},
        {{vxunpack, "-i a.vxl -o out.laz -cs 300 -j 2"}, "out.laz"},
        {{vxunpack, "-i a.vxl -o null -j 1"}},
        {{vxpack, "-i b.las -o out.vxl -order hilbert -j 1"}, "out.vxl"},
        {{vxpack, "-i big.las -o out.vxl -j 2"}, "out.vxl", 12, 8}, // through a temporary file
        {{vxpack, "-i c.laz -i a.vxl -i d.txt -p xyzi -o out.vxl -j 2"}, "out.vxl"},
        {{vxindex, "-o t.index a.vxl b.las c.laz d.txt -p xyzi -j 1"}, "t.index"},
        {{vxindex, "-o t.index a.vxl c.laz -overview o.las -createOverview -j 1"},
         "t.index",
         12,
         15,
         "-o t.index a.vxl c.laz -j 1"},
        {{vxinfo, "a.vxl b.las c.laz d.txt -p xyzi -check -stats -j 1"}},
        // The JSON library ends the process when memory runs out.
        {{vxinfo, "a.vxl b.las c.laz d.txt -p xyzi -check -stats -json -j 1"}, "", 0},
    };
    const struct
    {
        Call call;
        int error;
        bool lasts;
        bool isMadeUpFor;
    } faults[] = {
        {Call::Open, EMFILE, false, false},    {Call::Open, EACCES, false, false},
        {Call::Read, EIO, false, false},       {Call::Read, Testing::endOfFile, true, false},
        {Call::Read, EINTR, false, true},      {Call::Read, Testing::shortTransfer, false, true},
        {Call::Write, EIO, false, false},      {Call::Write, ENOSPC, true, false},
        {Call::Write, EINTR, false, true},     {Call::Write, Testing::shortTransfer, true, true},
        {Call::Close, EIO, false, false},      {Call::Size, EIO, false, false},
        {Call::Rename, EIO, true, false},      {Call::Rename, EXDEV, true, false},
        {Call::Unlink, EIO, false, false},     {Call::Allocate, ENOMEM, false, false},
        {Call::Allocate, ENOMEM, true, false},
    };
    for (const auto& each : cases) {
        Expected expected;
        expected.before = contents();
        if (*each.between) {
            ASSERT_EQ(run({each.command.program, each.between}).status, 0);
            expected.between = contents();
            restore(expected.before);
        }
        if (*each.output)
            expected.before[each.output] = "precious";
        run(each.command); // one-time initializations
        expected.clean = run(each.command);
        ASSERT_EQ(expected.clean.status, 0) << expected.clean.errors;
        expected.after = contents();
        long counts[Testing::numCalls];
        for (int call = 0; call < Testing::numCalls; ++call)
            counts[call] = Faults::count(static_cast<Call>(call));
        const bool readsText = std::strstr(each.command.arguments, "d.txt");
        for (const auto& fault : faults) {
            if (fault.error == Testing::endOfFile && readsText)
                continue; // text is valid with any length
            const long limit = fault.call != Call::Allocate ? each.maxFaults
                               : fault.lasts                ? std::min(each.maxAllocations, 12L)
                                                            : each.maxAllocations;
            for (const long at : sample(counts[static_cast<int>(fault.call)], limit)) {
                currentFault = std::string(each.command.arguments) + ": call " +
                               std::to_string(static_cast<int>(fault.call)) + " number " +
                               std::to_string(at) + " error " + std::to_string(fault.error) + '\n';
                SCOPED_TRACE(currentFault);
                restore(expected.before);
                const Outcome outcome = run(each.command, {fault.call, at, fault.error, fault.lasts});
                check(expected, outcome);
                checkReason(outcome, {fault.call, at, fault.error});
                EXPECT_TRUE(outcome.status == 0 || !fault.isMadeUpFor) << outcome.errors;
            }
        }
        restore(expected.before);
        if (*each.output)
            std::filesystem::remove(directory / each.output);
    }
}

TEST_F(Robustness, TheCommandLineReportsEveryAllocationThatFails)
{
    struct Exit
    {
        int status;
    };
    const auto parse = [](long at) {
        QMCmdLine line("program", "short", "long", true);
        line.setExitHandler([](int status) { throw Exit{status}; });
        const Faults faults("/", {Call::Allocate, at, ENOMEM});
        line.setVersionNumbers(1, 2, 3);
        line.addString("o", "output", "a rather long description of what it is good for", true);
        line.addFloatArray("s", "scale", "three numbers", false, 3);
        line.addStringArray("i", "input", "any number", false, -1);
        line.setExtra("i");
        const char* const arguments[] = {"program", "-o", "a name that is long enough", "-s", "1", "2",
                                         "3",       "-i", "another name of some length"};
        line.parse(static_cast<int>(std::size(arguments)), arguments);
        return Faults::count(Call::Allocate);
    };
    const long count = parse(0);
    ASSERT_GT(count, 5);
    for (long at = 1; at <= count; ++at) {
        try {
            parse(at);
            ADD_FAILURE() << "allocation " << at << " did not fail";
        } catch (const Exit& exit) {
            EXPECT_EQ(exit.status, 1);
        } catch (const QMUtilException& error) {
            EXPECT_STREQ(error.what(), "out of memory");
        }
        ++m_numFaults;
    }
}

} // namespace
} // namespace Quillmoran
