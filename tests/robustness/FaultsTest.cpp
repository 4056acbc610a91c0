// Runs the programs with every system call, and every allocation, failing in turn. They run in this process, so
// that sanitizers detect leaks after a failure.
#include "robustness/Faults.h"

#include "cli/QMCmdLine.h"
#include "diff/Differ.h"
#include "info/Inspector.h"
#include "pack/Packer.h"
#include "platform/ByteOrder.h"
#include "support/LASClouds.h"
#include "support/RunTimes.h"
#include "support/SampleCloud.h"
#include "support/Test.h"
#include "tileindex/TileIndexer.h"
#include "transcode/Transcoder.h"
#include "utils/program/Program.h"
#include "view/Viewer.h"

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace Quillmoran::Testing { namespace {

using Main = int (*)(int argc, const char* const* argv);

template <class SomeProgram>
int mainOf(int argc, const char* const* argv)
{
    return Utils::runProgram([argc, argv] {
        Faults::sparesAllocations = true; // of the command line, whose failures end the process
        SomeProgram program;
        program.parse(argc, argv);
        Faults::sparesAllocations = false;
        return program.run();
    });
}

constexpr Main vxunpack = mainOf<Transcoder>, vxpack = mainOf<Packer>, vxindex = mainOf<TileIndexer>,
               vxinfo = mainOf<Inspector>, vxdiff = mainOf<Differ>, vxview = mainOf<Viewer>;

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

#ifdef VX_SANITIZED
constexpr long slowdown = 2;
#else
constexpr long slowdown = 1;
#endif

// All numbers up to a count, or the first, the last and some others; with sanitizers half as many.
std::vector<long> sample(long count, long maxCount)
{
    maxCount /= slowdown;
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
    std::_Exit(1);
}

class Robustness : public testing::Test
{
protected:
    void SetUp() override
    {
        std::signal(SIGABRT, printFault);
        std::signal(SIGSEGV, printFault);
        std::filesystem::create_directory(directory / "tmp");
        setenv("TMPDIR", (directory / "tmp").c_str(), 1);
        writeFile(directory / "a.vxl", buildFile(SampleCloud::make(1500, 1).toFile()));
        writeFile(directory / "b.las", randomLASFile(7, 4, 900, 2).build());
        writeFile(directory / "d.txt", std::string("1.5 2 3 4\n5 6 7 8\n9 10 11 12\n"));
        writeFile(directory / "big.las", randomLASFile(7, 4, 12000, 2).build());
        ASSERT_EQ(run({vxunpack, "-i a.vxl -o c.laz -cs 300"}).status, 0);
    }
    void TearDown() override
    {
        unsetenv("TMPDIR");
        std::printf("%ld faults\n", m_numFaults);
    }

    // Runs a program with a fault.
    Outcome run(const Command& command, const Fault& fault = {Call::Open, 0, 0})
    {
        Strings words = {"program"};
        std::istringstream stream(command.arguments);
        for (std::string word; stream >> word;)
            words.push_back(word.find('.') != std::string::npos ? directory / word : word);
        std::vector<const char*> argv;
        for (const std::string& word : words)
            argv.push_back(word.c_str());
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        int status = 0;
        {
            const Faults faults(directory.path(), fault);
            status = command.program(static_cast<int>(argv.size()), argv.data());
        }
        m_numFaults += Faults::happened;
        std::string output = testing::internal::GetCapturedStdout();
        return {status, std::move(output), testing::internal::GetCapturedStderr()};
    }

    Contents contents() const
    {
        Contents files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
            if (entry.is_regular_file())
                files[entry.path().lexically_relative(directory.path()).string()] = readFile(entry.path());
        // An index holds the modification time of an overview that was just written.
        struct stat status;
        if (::stat((directory / "o.las").c_str(), &status) == 0) {
            std::string time(8, '\0'), &index = files.at("t.index");
            storeBigEndian(time.data(), static_cast<std::int64_t>(status.st_mtim.tv_sec));
            const std::size_t found = index.rfind(time);
            if (found != std::string::npos)
                index.replace(found, time.size(), time.size(), '\0');
        }
        return files;
    }

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
        const std::string reason = std::strerror(fault.error) + (" path = " + directory.path());
        const auto names = [&](const char* name) { return outcome.errors.ends_with(reason + name + '\n'); };
        EXPECT_TRUE(names("/out.txt") || names("/out.las") || names("/out.laz") || names("/out.vxl") ||
                    names("/o.las") || names("/t.index") || names("/out.png") || names("/tmp"))
            << outcome.errors;
    }

    // Every file is either old or new, and after success it is new.
    void check(const Outcome& outcome) const
    {
        const Contents now = contents();
        if (outcome.status == 0) {
            EXPECT_EQ(withoutTimes(outcome.output), withoutTimes(clean.output));
            EXPECT_EQ(outcome.errors, clean.errors);
            EXPECT_TRUE(now == after) << "incomplete";
        } else {
            EXPECT_EQ(outcome.status, 1);
            std::string text = outcome.errors;
            while (text.rfind("Warning: ", 0) == 0 &&
                   clean.errors.find(text.substr(0, text.find('\n'))) != std::string::npos)
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
            EXPECT_TRUE(isOf(before) || isOf(between) || isOf(after))
                << name << " is neither old nor complete, " << content.size() << " bytes";
        }
        for (const auto& [name, content] : before)
            EXPECT_TRUE(now.count(name)) << name << " is lost";
    }

    TemporaryDirectory directory;
    // The files before and after a command, and in between if it writes one twice; what it prints.
    Contents before, between, after;
    Outcome clean;
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
        {{vxpack, "-i a.vxl -o out.vxl -drop Intensity -meta Owner=me -j 1"}, "out.vxl"}, // copied
        {{vxindex, "-o t.index a.vxl b.las c.laz d.txt -p xyzi -j 1"}, "t.index"},
        {{vxindex, "-o t.index a.vxl c.laz -overview o.las -createOverview -j 1"},
         "t.index",
         12,
         15,
         "-o t.index a.vxl c.laz -j 1"},
        {{vxinfo, "a.vxl b.las c.laz d.txt -p xyzi -check -stats -j 1"}},
        {{vxview, "a.vxl -o out.png -size 64 -j 2"}, "out.png"},
        {{vxdiff, "a.vxl a.vxl -j 1"}},
        {{vxdiff, "b.las b.las -unordered -j 2"}},
        // The JSON library ends the process when memory runs out.
        {{vxinfo, "a.vxl b.las c.laz d.txt -p xyzi -check -stats -json -j 1"}, "", 0},
    };
    const Fault faults[] = {
        {Call::Open, 0, EMFILE, false},    {Call::Open, 0, EACCES, false},
        {Call::Read, 0, EIO, false},       {Call::Read, 0, endOfFile, true},
        {Call::Read, 0, EINTR, false},     {Call::Read, 0, shortTransfer, false},
        {Call::Write, 0, EIO, false},      {Call::Write, 0, ENOSPC, true},
        {Call::Write, 0, EINTR, false},    {Call::Write, 0, shortTransfer, true},
        {Call::Close, 0, EIO, false},      {Call::Size, 0, EIO, false},
        {Call::Rename, 0, EIO, true},      {Call::Rename, 0, EXDEV, true},
        {Call::Unlink, 0, EIO, false},     {Call::Allocate, 0, ENOMEM, false},
        {Call::Allocate, 0, ENOMEM, true},
    };
    for (const auto& each : cases) {
        before = contents();
        between.clear();
        if (*each.between) {
            ASSERT_EQ(run({each.command.program, each.between}).status, 0);
            between = contents();
            restore(before);
        }
        if (*each.output)
            before[each.output] = "precious";
        run(each.command); // one-time initializations
        clean = run(each.command);
        ASSERT_EQ(clean.status, 0) << clean.errors;
        after = contents();
        const std::vector<long> counts(std::begin(Faults::counts), std::end(Faults::counts));
        const bool readsText = std::strstr(each.command.arguments, "d.txt");
        for (Fault fault : faults) {
            if (fault.error == endOfFile && readsText)
                continue; // text is valid with any length
            const long limit = fault.call != Call::Allocate ? each.maxFaults
                               : fault.lasts                ? std::min(each.maxAllocations, 12L)
                                                            : each.maxAllocations;
            const bool isMadeUpFor = fault.error == EINTR || fault.error == shortTransfer;
            for (const long at : sample(counts[static_cast<std::size_t>(fault.call)], limit)) {
                fault.at = at;
                currentFault = std::string(each.command.arguments) + ": call " +
                               std::to_string(static_cast<int>(fault.call)) + " number " +
                               std::to_string(at) + " error " + std::to_string(fault.error) + '\n';
                SCOPED_TRACE(currentFault);
                restore(before);
                const Outcome outcome = run(each.command, fault);
                check(outcome);
                checkReason(outcome, fault);
                EXPECT_TRUE(outcome.status == 0 || !isMadeUpFor) << outcome.errors;
            }
        }
        restore(before);
        if (*each.output)
            std::filesystem::remove(directory / each.output);
    }
}

TEST_F(Robustness, TheCommandLineReportsEveryAllocationThatFails)
{
    const auto parse = [](long at) -> std::string {
        QMCmdLine line("program", "short", "long", true);
        line.setExitHandler([](int status) { throw status; });
        const Faults faults("/", {Call::Allocate, at, ENOMEM});
        try {
            line.setVersionNumbers(1, 2, 3);
            line.addString("o", "output", "a rather long description of what it is good for", true);
            line.addFloatArray("s", "scale", "three numbers", false, 3);
            line.addStringArray("i", "input", "any number", false, -1);
            line.setExtra("i");
            const char* const arguments[] = {"program", "-o", "a name that is long enough", "-s", "1", "2",
                                             "3",       "-i", "another name of some length"};
            line.parse(static_cast<int>(std::size(arguments)), arguments);
            return "parsed";
        } catch (int status) {
            return "exit " + std::to_string(status);
        } catch (const QMUtilException& error) {
            return std::to_string(error.getCode()) + ' ' + error.what();
        }
    };
    long at = 0;
    for (std::string result; result != "parsed"; result = parse(++at))
        EXPECT_TRUE(at == 0 || result == "exit 1" || result == "8 out of memory") << result;
    EXPECT_GT(at, 6);
    m_numFaults += at - 1;
}

}} // namespace Quillmoran::Testing
