#include "cli/QMCmdLine.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr int noExit = -1;

struct Exit
{
    int status;
};

[[noreturn]] void throwExit(int status)
{
    throw Exit{status};
}

// The statuses of handlers that return.
std::vector<int> recordedExits;

void recordExit(int status)
{
    recordedExits.push_back(status);
}

struct Outcome
{
    int status = noExit; // of the exit handler, which threw
    std::string out;
    std::string err;
};

Outcome capture(const std::function<void()>& body)
{
    Outcome outcome;
    recordedExits.clear();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try {
        body();
    } catch (const Exit& exit) {
        outcome.status = exit.status;
    }
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.err = testing::internal::GetCapturedStderr();
    return outcome;
}

Outcome parse(QMCmdLine& cmdLine, std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "program");
    return capture([&] { cmdLine.parse(static_cast<int>(arguments.size()), arguments.data()); });
}

std::string usageError(const std::string& message)
{
    return "tool usage error: " + message + "\nUse -h or -help for list of options.\n\n";
}

std::string configError(const std::string& message)
{
    return "tool QMCmdLine configuration error: " + message + "\n";
}

struct Tool : QMCmdLine
{
    explicit Tool(bool standardOptions = false) : QMCmdLine("tool", "Short.", "Long.", standardOptions)
    {
        setExitHandler(throwExit);
    }
};

// The options of the decoder program.
struct Decoder : QMCmdLine
{
    Decoder() : QMCmdLine("vxunpack", description, description, true)
    {
        setExitHandler(throwExit);
        addFlag("V", "verbose", "d");
        addUint("j", "numThreads", "d");
        addString("ofld", "outFields", "d");
        addString("i", "inputFile", "d", true);
        addString("o", "outputFile", "d", true);
        addString("of", "outputFormat", "d");
        addFloat("s", "subsample", "d");
        addFloatArray("c", "crop", "d", false, 6);
        addFloatArray("ofs", "offset", "d", false, 3);
        addFloatArray("sc", "scale", "d", false, 3);
        addUint("cs", "chunckSize", "d");
    }

    static constexpr const char* description = "Decodes VX7 files to LAS or Text files";
};

TEST(QMCmdLine, ShortUsageListsTheDocumentedOptionsInDeclarationOrder)
{
    for (const char* name : {"-h", "-?"}) {
        Decoder cmdLine;
        const Outcome outcome = parse(cmdLine, {"-version", "-help", name});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(outcome.out,
                  "Usage: vxunpack [-h] [-help] [-v] [-credits] [-V] [-j UNSIGNED-INT] [-ofld STRING] "
                  "-i STRING -o STRING [-of STRING] [-s FLOAT] "
                  "[-c FLOAT0 FLOAT1 FLOAT2 FLOAT3 FLOAT4 FLOAT5] [-ofs FLOAT0 FLOAT1 FLOAT2] "
                  "[-sc FLOAT0 FLOAT1 FLOAT2] [-cs UNSIGNED-INT] \n"
                  "Decodes VX7 files to LAS or Text files\n")
            << name;
    }
}

TEST(QMCmdLine, ReportsOnlyTheFirstUnknownSwitch)
{
    Decoder cmdLine;
    const Outcome outcome = parse(cmdLine, {"-foo", "-bar", "-o", "b"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "vxunpack usage error: unrecognized switch -foo\n"
                           "Use -h or -help for list of options.\n\n");
    EXPECT_STREQ(cmdLine.getString("o"), "b");
}

TEST(QMCmdLine, SwitchNamesAreExactAndHaveOneDash)
{
    for (const char* name : {"--help", "-H", "-hel", "-"}) {
        Tool cmdLine(true);
        EXPECT_EQ(parse(cmdLine, {name}).err, usageError(std::string("unrecognized switch ") + name));
    }
}

TEST(QMCmdLine, HelpIsShownDespiteAnUnknownSwitch)
{
    Decoder cmdLine;
    const Outcome outcome = parse(cmdLine, {"-foo", "-h"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

TEST(QMCmdLine, ShowsTheVersionThatWasSetLast)
{
    const char* const built = "Built Dec 21 2017 14:39:27 (release, 64 bits)\n";
    for (const char* name : {"-v", "-version"}) {
        Tool cmdLine(true);
        EXPECT_EQ(parse(cmdLine, {name}).out, "(no version info)\n");

        cmdLine.setVersionNumbers(1, 1, 4);
        const Outcome outcome = parse(cmdLine, {name});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out.rfind("Version 1.1.4.4709.", 0), 0u) << outcome.out;
        EXPECT_EQ(outcome.out.substr(outcome.out.find('\n') + 1), built);

        cmdLine.setVersionString("seven");
        EXPECT_EQ(parse(cmdLine, {name}).out, "seven\n");
    }
}

void declareOneOfEachShape(QMCmdLine& cmdLine)
{
    cmdLine.addFlag("f", "flag", "A flag.");
    cmdLine.addBool("b", nullptr, "A bool.");
    cmdLine.addSintArray("n", nullptr, "Repeated.", true, -1);
    cmdLine.addFloatArray("p", "point", "Two.", false, 2);
    cmdLine.addUint("u", "hidden", "Hidden.", true);
    cmdLine.addStringArray("files", "inputs", "The rest.", true, 0);
    cmdLine.setExtra("inputs");
    cmdLine.setUndocumented("hidden");
}

TEST(QMCmdLine, LongUsageDescribesTheDocumentedOptions)
{
    Tool cmdLine;
    declareOneOfEachShape(cmdLine);
    EXPECT_TRUE(cmdLine.getUndocumented("u"));
    EXPECT_FALSE(cmdLine.getUndocumented("files"));

    const std::string point = "\n  -p or -point FLOAT0 FLOAT1\n  Two.\n";
    const std::string options = "\n  -f or -flag\n  A flag.\n"
                                "\n  -b BOOL\n  A bool.\n"
                                "\n  -n SIGNED-INT*\n  [required]\n  Repeated.\n" +
                                point +
                                "\n  files or inputs STRINGs...\n  [required]\n  The rest.\n"
                                "\n";
    EXPECT_EQ(capture([&] { cmdLine.showLongUsageMessage(); }).out,
              "tool: (no version info)\nLong.\n" + options);
    EXPECT_EQ(capture([&] { cmdLine.showShortUsageMessage(); }).out,
              "Usage: tool [-f] [-b BOOL] -n SIGNED-INT* [-p FLOAT0 FLOAT1]  STRINGs... \nShort.\n");

    const auto oneOption = [&](const char* name) {
        return capture([&] { cmdLine.showLongUsageMessage(name); }).out;
    };
    EXPECT_EQ(oneOption("p"), point);
    EXPECT_EQ(oneOption("point"), point);
    EXPECT_EQ(oneOption("hidden") + oneOption("nothing"), "");

    cmdLine.setVersionNumbers(1, 2, 3);
    const std::string out = capture([&] { cmdLine.showLongUsageMessage(); }).out;
    EXPECT_EQ(out.rfind("tool: Version 1.2.3.4709.", 0), 0u) << out;
    EXPECT_NE(out.find("\nBuilt Dec 21 2017 14:39:27 (release, 64 bits)\nLong.\n"), std::string::npos) << out;
}

TEST(QMCmdLine, AValueIsFoundByEitherNameOfItsOption)
{
    Decoder cmdLine;
    const Outcome outcome = parse(cmdLine, {"-inputFile", "a", "-o", "b", "-o", "c", "-j", "12abc",
                                            "-verbose", "-c", "-1.5", "10", "0", "1e3", "-inf", "+inf"});
    EXPECT_EQ(outcome.status, noExit) << outcome.err;
    EXPECT_STREQ(cmdLine.getString("i"), "a");
    EXPECT_STREQ(cmdLine.getString("outputFile"), "c") << "a later occurrence replaces the value";
    EXPECT_EQ(cmdLine.getUint("numThreads"), 12u);
    EXPECT_TRUE(cmdLine.getFlag("V"));
    std::size_t count = 0;
    const double* crop = cmdLine.getFloatArray("crop", count);
    EXPECT_EQ(std::vector<double>(crop, crop + count),
              (std::vector<double>{-1.5, 10, 0, 1000, -infinity, infinity}));

    EXPECT_FALSE(cmdLine.isPresent("scale"));
    EXPECT_EQ(cmdLine.getFloatArray("scale", count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(cmdLine.getString("of"), nullptr);
    EXPECT_EQ(cmdLine.getFloat("s"), 0.0);
}

TEST(QMCmdLine, RepeatableOptionsCollectAndFixedOnesReplace)
{
    Tool cmdLine;
    cmdLine.addStringArray("i", nullptr, "d", false, -1);
    cmdLine.addSintArray("n", nullptr, "d", false, 2);
    parse(cmdLine, {"-i", "a", "-n", "1", "2", "-i", "-n", "-n", "-3", "-4"});
    std::size_t count = 0;
    const char* const* names = cmdLine.getStringArray("i", count);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(names[0], "a");
    EXPECT_STREQ(names[1], "-n") << "an argument may look like a switch";
    const int* numbers = cmdLine.getSintArray("n", count);
    EXPECT_EQ(std::vector<int>(numbers, numbers + count), (std::vector<int>{-3, -4}));
}

TEST(QMCmdLine, ExtraOptionGetsThePositionalArguments)
{
    Tool swallowing;
    declareOneOfEachShape(swallowing);
    EXPECT_EQ(parse(swallowing, {"-n", "1", "-u", "2", "a", "-f", "b"}).status, noExit);
    std::size_t count = 0;
    const char* const* files = swallowing.getStringArray("files", count);
    ASSERT_EQ(count, 3u);
    EXPECT_STREQ(files[1], "-f");
    EXPECT_FALSE(swallowing.getFlag("f"));

    Tool collecting;
    collecting.addUintArray("n", nullptr, "d", false, -1);
    collecting.addFlag("f", nullptr, "d");
    collecting.setExtra("n");
    parse(collecting, {"1", "-f", "2"});
    const unsigned int* numbers = collecting.getUintArray("n", count);
    EXPECT_EQ(std::vector<unsigned int>(numbers, numbers + count), (std::vector<unsigned int>{1, 2}));
    EXPECT_TRUE(collecting.getFlag("f"));
}

TEST(QMCmdLine, RejectsMissingAndSurplusArguments)
{
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases = {
        {{"-n", "1", "-u", "2"}, "required inputs argument(s) not present"},
        {{"-n", "1", "x"}, "required switch -hidden not present"},
        {{"-u", "1", "x"}, "required switch -n not present"},
        {{"-n"}, "not enough arguments for option -n"},
        {{"-b"}, "not enough arguments for option -b"},
        {{"-b", "yes"}, "expected bool argument (got yes)"},
        {{"-p", "1"}, "not enough arguments for option -point"},
    };
    for (const auto& [arguments, message] : cases) {
        Tool cmdLine;
        declareOneOfEachShape(cmdLine);
        const Outcome outcome = parse(cmdLine, arguments);
        EXPECT_EQ(outcome.err, usageError(message));
        EXPECT_EQ(outcome.status, 1) << message;
    }
    Tool noExtra;
    EXPECT_EQ(parse(noExtra, {"a", "b"}).err, usageError("extra arguments found (a ...)"));
}

TEST(QMCmdLine, StaysUsableIfTheExitHandlerReturns)
{
    // As a switch and as the extra option: the parser must neither loop nor read past argv.
    for (const bool asSwitch : {true, false}) {
        Tool cmdLine;
        cmdLine.setExitHandler(recordExit);
        cmdLine.addFloatArray("c", "crop", "d", false, 6);
        cmdLine.setExtra("c");
        std::vector<const char*> arguments = {"1", "2", "3", "4", "5"};
        if (asSwitch)
            arguments.insert(arguments.begin(), "-c");
        EXPECT_EQ(parse(cmdLine, arguments).err, usageError("not enough arguments for option -crop"));
        EXPECT_EQ(recordedExits, std::vector<int>{1});
        EXPECT_FALSE(cmdLine.isPresent("crop"));
        EXPECT_EQ(cmdLine.getFloatArray("crop"), nullptr);
    }
    Tool cmdLine(true);
    cmdLine.setExitHandler(recordExit);
    parse(cmdLine, {"a", "-h", "-x"});
    EXPECT_EQ(recordedExits, (std::vector<int>{1, 0, 1}));
}

TEST(QMCmdLine, FailedGettersReturnNothingIfTheExitHandlerReturns)
{
    Tool cmdLine;
    cmdLine.setExitHandler(recordExit);
    cmdLine.addStringArray("s", "strings", "d", false, -1);
    cmdLine.addSintArray("n", nullptr, "d", false, 2);
    cmdLine.addUintArray("u", nullptr, "d", false, 2);
    cmdLine.addFloatArray("x", nullptr, "d", false, 2);
    cmdLine.addFlag("f", nullptr, "d");
    parse(cmdLine, {"-s", "a", "-n", "1", "2", "-u", "1", "2", "-x", "1", "2", "-f"});
    EXPECT_STREQ(cmdLine.getString("s"), "a") << "one value of a repeatable option is no error";
    parse(cmdLine, {"-s", "b"});

    std::size_t count = 9;
    const std::vector<std::pair<std::function<bool()>, std::string>> cases = {
        {[&] { return cmdLine.isPresent("parse"); }, "switch name -parse invalid"},
        {[&] { return cmdLine.getFlag(nullptr); }, "switch name - invalid"},
        {[&] { return cmdLine.getFloatArray("y", count) != nullptr; }, "switch name -y invalid"},
        {[&] { return cmdLine.getFlag("strings"); }, "wrong type used for getting value of option strings"},
        {[&] { return cmdLine.getBool("f"); }, "wrong type used for getting value of option f"},
        {[&] { return cmdLine.getUint("n") != 0; }, "wrong type used for getting value of option n"},
        {[&] { return cmdLine.getSintArray("u", count) != nullptr; },
         "wrong type used for getting value of option u"},
        {[&] { return cmdLine.getString("s") != nullptr; },
         "got more than one arg from STRING option strings"},
        {[&] { return cmdLine.getSint("n") != 0; }, "got more than one arg from SIGNED-INT option n"},
        {[&] { return cmdLine.getUint("u") != 0; }, "got more than one arg from UNSIGNED-INT option u"},
        {[&] { return cmdLine.getFloat("x") != 0; }, "got more than one arg from FLOAT option x"},
    };
    for (const auto& [query, message] : cases) {
        const Outcome outcome = capture([&, &query = query] { EXPECT_FALSE(query()); });
        EXPECT_EQ(outcome.err, configError(message));
        EXPECT_EQ(recordedExits, std::vector<int>{1}) << message;
    }
    EXPECT_EQ(count, 0u);
}

TEST(QMCmdLine, RejectsInvalidDeclarations)
{
    using Declare = void (*)(QMCmdLine&);
    const std::vector<std::pair<Declare, std::string>> cases = {
        {[](QMCmdLine& c) { c.addFlag(nullptr, "x", "d"); }, "no option name set (Option ctor)"},
        {[](QMCmdLine& c) { c.addFlag("x", nullptr, nullptr); }, "no description set (Option ctor)"},
        {[](QMCmdLine& c) { c.addFlag("flag", nullptr, "d"); }, "switch name -flag is not unique"},
        {[](QMCmdLine& c) { c.addFlag("x", "b", "d"); }, "switch name -b is not unique"},
        {[](QMCmdLine& c) { c.setExtra("b"); }, "setExtra already declared for option inputs"},
        {[](QMCmdLine& c) { c.setUndocumented("x"); }, "option x invalid"},
        {[](QMCmdLine& c) { c.getUndocumented("x"); }, "option x invalid"},
    };
    for (const auto& [declare, message] : cases) {
        Tool cmdLine;
        declareOneOfEachShape(cmdLine);
        const Outcome thrown = capture([&, declare = declare] { declare(cmdLine); });
        EXPECT_EQ(thrown.err, configError(message));
        EXPECT_EQ(thrown.status, 1) << message;

        cmdLine.setExitHandler(recordExit);
        capture([&, declare = declare] {
            declare(cmdLine);
            cmdLine.showLongUsageMessage("nothing"); // compares with all names
        });
        EXPECT_EQ(recordedExits, std::vector<int>{1}) << message;
    }

    Tool cmdLine;
    cmdLine.addFlag("f", "flag", "d");
    EXPECT_EQ(capture([&] { cmdLine.setExtra("x"); }).err, configError("option x invalid"));
    EXPECT_EQ(capture([&] { cmdLine.setExtra("f"); }).err,
              configError("option flag is of type Flag, can't be declared Extra"));
}

TEST(QMCmdLineDeathTest, ConstructorExitsWhenATextIsMissing)
{
    const auto exitedWithOne = testing::ExitedWithCode(1);
    EXPECT_EXIT(QMCmdLine(nullptr, "s", "l", true), exitedWithOne,
                "^ QMCmdLine configuration error: app name not set \\(QMCmdLine ctor\\)\n$");
    EXPECT_EXIT(QMCmdLine("tool", nullptr, "l", true), exitedWithOne, "app short desc not set \\(QMC");
    EXPECT_EXIT(QMCmdLine("tool", "s", nullptr, true), exitedWithOne, "app long desc not set \\(QMC");
}

TEST(QMCmdLine, OnlyTheFirstLetterOfABoolCounts)
{
    const Tool cmdLine;
    for (const char* text : {"true", "T", "tr", "tomorrow", ""})
        EXPECT_TRUE(cmdLine.toBool(text)) << text;
    for (const char* text : {"false", "F", "fAL", "fish"})
        EXPECT_FALSE(cmdLine.toBool(text)) << text;
    for (const char* text : {"1", "yes", " true"})
        EXPECT_EQ(capture([&] { cmdLine.toBool(text); }).err,
                  usageError(std::string("expected bool argument (got ") + text + ")"));
}

TEST(QMCmdLine, NumbersEndAtTheFirstOtherCharacter)
{
    EXPECT_EQ(QMCmdLine::toSint("-12abc"), -12);
    EXPECT_EQ(QMCmdLine::toSint("0x10"), 0);
    EXPECT_EQ(QMCmdLine::toSint("abc"), 0);
    EXPECT_EQ(QMCmdLine::toUint("4294967295"), 4294967295u);
    EXPECT_EQ(QMCmdLine::toUint("010"), 10u);
    EXPECT_EQ(QMCmdLine::toFloat("-2.5e1x"), -25.0);
    EXPECT_EQ(QMCmdLine::toFloat("+1"), 1.0);
    EXPECT_EQ(QMCmdLine::toFloat("abc"), 0.0);
    for (const char* text : {"inf", "+Inf", "+", "i", "IN", "infinity", "information"})
        EXPECT_EQ(QMCmdLine::toFloat(text), infinity) << text;
    for (const char* text : {"-inf", "-INF", "-", "-i", "-informal"})
        EXPECT_EQ(QMCmdLine::toFloat(text), -infinity) << text;
}

TEST(QMCmdLine, StrictNumbersAreReadCompletely)
{
    const auto isRefused = [](const char* option, const char* text) {
        Tool cmdLine;
        cmdLine.setStrictNumbers();
        cmdLine.addSint("i", nullptr, "d");
        cmdLine.addUint("u", nullptr, "d");
        cmdLine.addFloat("x", nullptr, "d");
        const std::string errors = parse(cmdLine, {option, text}).err;
        EXPECT_TRUE(errors.empty() ||
                    errors == usageError(std::string("bad value '") + text + "' of option " + option))
            << errors;
        return !errors.empty();
    };
    const std::pair<const char*, std::vector<const char*>> accepted[] = {
        {"-i", {"0", "-12", "+7", "2147483647", "-2147483648"}},
        {"-u", {"0", "+7", "007", "4294967295"}},
        {"-x", {"0", "-2.5e1", ".5", "+3.", "1e308", "inf", "+INF", "-inf"}},
    };
    const std::pair<const char*, std::vector<const char*>> refused[] = {
        {"-i", {"", "-", "+", "+-1", "12abc", "1.5", " 1", "2147483648", "-2147483649"}},
        {"-u", {"", "-1", "+-1", "++1", "abc", "0x10", "1 ", "4294967296", "99999999999999999999"}},
        {"-x", {"", "-", "+", ".", "e5", "1,5", "12abc", " 1", "1e", "0x10", "nan", "infinity", "1e999"}},
    };
    for (const auto& [option, texts] : accepted)
        for (const char* text : texts)
            EXPECT_FALSE(isRefused(option, text)) << option << " '" << text << "'";
    for (const auto& [option, texts] : refused)
        for (const char* text : texts)
            EXPECT_TRUE(isRefused(option, text)) << option << " '" << text << "'";
}

TEST(QMCmdLine, OutOfMemoryIsAUtilExceptionWithCodeEight)
{
    Tool cmdLine;
    cmdLine.setExitHandler([](int) { throw std::bad_alloc(); }); // instead of a failing allocation
    const char* const argv[] = {"program", "-x"};
    const auto codeOf = [](const std::function<void()>& body) {
        int code = 0;
        capture([&] {
            try {
                body();
            } catch (const QMUtilException& exception) {
                code = exception.getCode();
            }
        });
        return code;
    };
    EXPECT_EQ(codeOf([&] { cmdLine.parse(2, argv); }), 8);
    EXPECT_EQ(codeOf([&] { cmdLine.addFlag(nullptr, nullptr, "d"); }), 8);
}

TEST(QMCmdLine, DumpShowsTheArgumentsAndEveryOption)
{
    Tool cmdLine;
    cmdLine.addFlag("f", nullptr, "A flag.");
    cmdLine.addString("s", "text", "A text.", true);
    const std::string head = "appName: tool\nappDescShort: Short.\nappDescLong: Long.\nnumOptions: 2\n"
                             "usingStandardOptions: false\n";
    const std::string rule = "\n---------------------------------------------\n";
    EXPECT_EQ(capture([&] { cmdLine.dump(); }).out.rfind(head + "formal argc: -1\nformal argv: " + rule, 0),
              0u);

    const char* const argv[] = {"program", "-s", "x"};
    cmdLine.parse(3, argv);
    const std::string out = capture([&] { cmdLine.dump(); }).out;
    EXPECT_EQ(out.rfind(head + "formal argc: 3\nformal argv:   [0] program\n  [1] -s\n  [2] x\n" + rule +
                            "shortName: f\nlongName: (none)\ndescription: A flag.\nisRequired: false\n"
                            "isPresent: false\n",
                        0),
              0u)
        << out;
    EXPECT_NE(out.find(rule + "shortName: s\nlongName: text\ndescription: A text.\nisRequired: true\n"
                              "isPresent: true\n"),
              std::string::npos)
        << out;
}

} // namespace
} // namespace Quillmoran
