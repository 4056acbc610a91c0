#include "cli/QMCmdLine.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

constexpr int noExit = -1;

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
    } catch (int status) {
        outcome.status = status;
    }
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.err = testing::internal::GetCapturedStderr();
    return outcome;
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
        setExitHandler([](int status) { throw status; });
    }

    Outcome run(const Strings& arguments)
    {
        words = arguments;
        argv = {"program"};
        for (const std::string& word : words)
            argv.push_back(word.c_str());
        return capture([&] { parse(static_cast<int>(argv.size()), argv.data()); });
    }
    // Arguments between blanks.
    Outcome run(const std::string& line)
    {
        std::istringstream in(line);
        return run(Strings(std::istream_iterator<std::string>(in), {}));
    }

    Strings words;
    std::vector<const char*> argv;
};

// An option of each kind and number of arguments.
struct Shapes : Tool
{
    explicit Shapes(bool standardOptions = false) : Tool(standardOptions)
    {
        addFlag("f", "flag", "A flag.");
        addBool("b", nullptr, "A bool.");
        addSintArray("n", nullptr, "Repeated.", true, -1);
        addFloatArray("p", "point", "Two.", false, 2);
        addUint("u", "hidden", "Hidden.", true);
        addStringArray("files", "inputs", "The rest.", true, 0);
        setExtra("inputs");
        setUndocumented("hidden");
    }
};

const std::string longPoint = "\n  -p or -point FLOAT0 FLOAT1\n  Two.\n";
const std::string longOptions =
    "\n  -f or -flag\n  A flag.\n\n  -b BOOL\n  A bool.\n\n  -n SIGNED-INT*\n  [required]\n  Repeated.\n" +
    longPoint + "\n  files or inputs STRINGs...\n  [required]\n  The rest.\n\n";
const std::string shortOptions = "[-f] [-b BOOL] -n SIGNED-INT* [-p FLOAT0 FLOAT1]  STRINGs... \nShort.\n";
const std::string built = "\nBuilt Dec 21 2017 14:39:27 (release, 64 bits)\n";

TEST(QMCmdLine, AnswersTheStandardOptions)
{
    const std::string usage = "Usage: tool [-h] [-help] [-v] [-credits] " + shortOptions;
    const std::pair<const char*, std::string> cases[] = {{"-h", usage},
                                                         {"-version -help -?", usage},
                                                         {"-foo -h", usage},
                                                         {"-v", "seven\n"},
                                                         {"-credits -version", "seven\n"},
                                                         {"-version -foo", "seven\n"},
                                                         {"-n 1 -help", ""},
                                                         {"-help -v -foo", "tool: seven\nLong.\n"}};
    for (const auto& [line, out] : cases) {
        SCOPED_TRACE(line);
        Shapes tool(true);
        tool.setVersionString("seven");
        const Outcome outcome = tool.run(line);
        EXPECT_EQ(std::to_string(outcome.status) + outcome.err, "0");
        EXPECT_EQ(outcome.out.substr(0, out.size()), out);
        EXPECT_EQ(outcome.out.size() > out.size(), out.find("Long") != out.npos || out.empty());
    }
    Tool tool(true);
    tool.setVersionNumbers(1, 2, 3);
    const std::string out = tool.run("-v").out;
    EXPECT_EQ(out.rfind("Version 1.2.3.4709.", 0), 0u) << out;
    EXPECT_EQ(out.substr(out.find('\n')), built);
}

TEST(QMCmdLine, DescribesTheDocumentedOptions)
{
    Shapes tool;
    EXPECT_TRUE(tool.getUndocumented("u"));
    EXPECT_FALSE(tool.getUndocumented("files"));
    EXPECT_EQ(capture([&] { tool.showLongUsageMessage(); }).out,
              "tool: (no version info)\nLong.\n" + longOptions);
    EXPECT_EQ(capture([&] { tool.showShortUsageMessage(); }).out, "Usage: tool " + shortOptions);
    for (const auto& [name, text] : {std::pair{"p", longPoint}, {"point", longPoint}, {"u", ""}, {"x", ""}})
        EXPECT_EQ(capture([&, name = name] { tool.showLongUsageMessage(name); }).out, text);
}

TEST(QMCmdLine, FindsValuesByEitherName)
{
    Shapes tool;
    const Outcome outcome =
        tool.run("-u 3000000000 -p 1e3 -1.5 -b f -n -7 -point -inf +inf -n 8 -hidden 12abc a -f b");
    EXPECT_EQ(outcome.status, noExit) << outcome.err;
    EXPECT_EQ(tool.getUint("u"), 12u) << "a later occurrence replaces the value";
    std::size_t count = 0;
    const double* point = tool.getFloatArray("point", count);
    EXPECT_EQ(Numbers(point, point + count), (Numbers{-infinity, infinity}));
    const int* numbers = tool.getSintArray("n", count);
    EXPECT_EQ(std::vector<int>(numbers, numbers + count), (std::vector<int>{-7, 8}));
    const char* const* files = tool.getStringArray("files", count);
    EXPECT_EQ(Strings(files, files + count), (Strings{"a", "-f", "b"})) << "all arguments from the first on";
    EXPECT_TRUE(tool.isPresent("b"));
    EXPECT_FALSE(tool.getBool("b") || tool.getFlag("f"));

    // Values are kept until they are replaced; those of repeated options are collected.
    tool.run("-u 3000000000 -flag -n 9 c");
    EXPECT_EQ(tool.getUint("hidden"), 3000000000u);
    EXPECT_NE(tool.getFloatArray("p"), nullptr);
    EXPECT_TRUE(tool.getFlag("f"));
    EXPECT_EQ(tool.getSintArray("n", count)[2], 9);
    EXPECT_STREQ(tool.getStringArray("inputs", count)[0], "c");
    EXPECT_EQ(count, 1u);

    Tool other;
    other.addString("s", nullptr, "d");
    other.addFloatArray("x", nullptr, "d", false, 3);
    other.addUintArray("n", nullptr, "d", false, -1);
    other.addFlag("f", nullptr, "d");
    other.setExtra("n");
    EXPECT_EQ(other.run("1 -f 2 -s -f").status, noExit);
    EXPECT_TRUE(!other.isPresent("x") && other.getFlag("f"));
    EXPECT_EQ(other.getFloatArray("x", count), nullptr);
    EXPECT_EQ(static_cast<double>(count) + other.getFloat("x"), 0);
    EXPECT_STREQ(other.getString("s"), "-f") << "an argument may look like a switch";
    EXPECT_EQ(other.getUintArray("n", count)[1], 2u);
    EXPECT_EQ(count, 2u);
}

TEST(QMCmdLine, ReportsUsageErrors)
{
    const std::string unknown = "unrecognized switch ", few = "not enough arguments for option -";
    const std::pair<const char*, std::string> cases[] = {
        {"-n 1 -u 2", "required inputs argument(s) not present"},
        {"-n 1 x", "required switch -hidden not present"},
        {"-u 1 x", "required switch -n not present"},
        {"-n", few + "n"},
        {"-b", few + "b"},
        {"-p 1", few + "point"},
        {"-b yes", "expected bool argument (got yes)"},
        {"-b \x1B[2J", "expected bool argument (got \\x1b[2J)"},
        {"-foo -bar -u 2", unknown + "-foo"},
        {"--help", unknown + "--help"},
        {"-H", unknown + "-H"},
        {"-hel", unknown + "-hel"},
        {"-", unknown + "-"},
    };
    for (const auto& [line, message] : cases) {
        const Outcome outcome = Shapes(true).run(line);
        EXPECT_EQ(outcome.out + outcome.err, usageError(message));
        EXPECT_EQ(outcome.status, 1) << line;
    }
    const std::string longest(3000, 'x');
    EXPECT_EQ(Tool().run(longest).err, usageError("extra arguments found (" + longest + " ...)"));
}

TEST(QMCmdLine, StaysUsableIfTheExitHandlerReturns)
{
    // As a switch and as the extra option: the parser must neither loop nor read past argv.
    for (const char* line : {"1 2 3 4 5", "-c 1 2 3 4 5"}) {
        Tool tool;
        tool.setExitHandler(recordExit);
        tool.addFloatArray("c", "crop", "d", false, 6);
        tool.setExtra("c");
        EXPECT_EQ(tool.run(line).err, usageError("not enough arguments for option -crop"));
        EXPECT_EQ(recordedExits, std::vector<int>{1});
        EXPECT_FALSE(tool.isPresent("crop"));
        EXPECT_EQ(tool.getFloatArray("crop"), nullptr);
    }
    Tool tool(true);
    tool.setExitHandler(recordExit);
    tool.run("a -h -x");
    EXPECT_EQ(recordedExits, (std::vector<int>{1, 0, 1}));
}

TEST(QMCmdLine, ReportsWrongDeclarationsAndGetters)
{
    const std::string wrongType = "wrong type used for getting value of option ",
                      many = "got more than one arg from ";
    const std::pair<void (*)(Shapes&), std::string> cases[] = {
        {[](Shapes& c) { c.addFlag(nullptr, "x", "d"); }, "no option name set (Option ctor)"},
        {[](Shapes& c) { c.addFlag("x", nullptr, nullptr); }, "no description set (Option ctor)"},
        {[](Shapes& c) { c.addFlag("flag", nullptr, "d"); }, "switch name -flag is not unique"},
        {[](Shapes& c) { c.addFlag("x", "b", "d"); }, "switch name -b is not unique"},
        {[](Shapes& c) { c.setExtra("b"); }, "setExtra already declared for option inputs"},
        {[](Shapes& c) { c.setUndocumented("x"); }, "option x invalid"},
        {[](Shapes& c) { EXPECT_FALSE(c.getUndocumented("x")); }, "option x invalid"},
        {[](Shapes& c) { EXPECT_FALSE(c.isPresent("parse")); }, "switch name -parse invalid"},
        {[](Shapes& c) { EXPECT_FALSE(c.getFlag(nullptr)); }, "switch name - invalid"},
        {[](Shapes& c) { EXPECT_FALSE(c.getFloatArray("y") != nullptr); }, "switch name -y invalid"},
        {[](Shapes& c) { EXPECT_FALSE(c.getFlag("b")); }, wrongType + "b"},
        {[](Shapes& c) { EXPECT_FALSE(c.getBool("f")); }, wrongType + "flag"},
        {[](Shapes& c) { EXPECT_FALSE(c.getUint("n") != 0); }, wrongType + "n"},
        {[](Shapes& c) { EXPECT_FALSE(c.getFloatArray("u") != nullptr); }, wrongType + "hidden"},
        {[](Shapes& c) { EXPECT_FALSE(c.getString("files") != nullptr); }, many + "STRING option inputs"},
        {[](Shapes& c) { EXPECT_FALSE(c.getSint("n") != 0); }, many + "SIGNED-INT option n"},
        {[](Shapes& c) { EXPECT_FALSE(c.getFloat("p") != 0); }, many + "FLOAT option point"},
    };
    for (const auto& [call, message] : cases) {
        Shapes tool;
        tool.run("-f -b t -n 1 -n 2 -p 1 2 -u 1 a b");
        EXPECT_EQ(capture([&, call = call] { call(tool); }).err, configError(message));
        tool.setExitHandler(recordExit);
        capture([&, call = call] { call(tool); });
        tool.showLongUsageMessage("nothing"); // compares with all names
        EXPECT_EQ(recordedExits, std::vector<int>{1}) << message;
    }
    Tool tool;
    tool.addFlag("f", "flag", "d");
    EXPECT_EQ(capture([&] { tool.setExtra("x"); }).err, configError("option x invalid"));
    EXPECT_EQ(capture([&] { tool.setExtra("f"); }).err,
              configError("option flag is of type Flag, can't be declared Extra"));
}

TEST(QMCmdLineDeathTest, ExitsByDefault)
{
    EXPECT_EXIT(QMCmdLine(nullptr, "s", "l", true), testing::ExitedWithCode(1),
                "^ QMCmdLine configuration error: app name not set \\(QMCmdLine ctor\\)\n$");
    Tool tool;
    tool.setExitHandler(nullptr);
    EXPECT_EXIT(tool.usageError("%d", 7), testing::ExitedWithCode(1), "tool usage error: 7\n");
}

TEST(QMCmdLine, ConvertsLeniently)
{
    const Tool tool;
    for (const char* text : {"true", "T", "tr", "tomorrow", ""})
        EXPECT_TRUE(tool.toBool(text)) << text;
    for (const char* text : {"false", "F", "fAL", "fish"})
        EXPECT_FALSE(tool.toBool(text)) << text;
    for (const char* text : {"1", "yes", " true"})
        EXPECT_EQ(capture([&] { tool.toBool(text); }).status, 1) << text;

    EXPECT_EQ(QMCmdLine::toSint("-12abc"), -12);
    EXPECT_EQ(QMCmdLine::toSint("0x10"), 0);
    EXPECT_EQ(QMCmdLine::toSint("010"), 10);
    EXPECT_EQ(QMCmdLine::toUint("4294967295"), 4294967295u);
    EXPECT_EQ(QMCmdLine::toUint("010"), 10u);
    for (const auto& [text, value] :
         {std::pair{"-2.5e1x", -25.0}, {"+1", 1.0}, {"abc", 0.0}, {"-", -infinity}, {"+", infinity}})
        EXPECT_EQ(QMCmdLine::toFloat(text), value);
    for (const std::string text : {"inf", "Inf", "i", "IN", "infinity", "information"}) {
        EXPECT_EQ(QMCmdLine::toFloat(text.c_str()) + QMCmdLine::toFloat(("+" + text).c_str()), infinity);
        EXPECT_EQ(QMCmdLine::toFloat(("-" + text).c_str()), -infinity) << text;
    }
}

TEST(QMCmdLine, StrictNumbersAreReadCompletely)
{
    const std::tuple<std::string, Strings, Strings> cases[] = {
        {"-i",
         {"0", "-12", "+7", "2147483647", "-2147483648"},
         {"", "-", "+", "+-1", "12abc", "1.5", " 1", "2147483648", "-2147483649"}},
        {"-u",
         {"0", "+7", "007", "4294967295"},
         {"", "-1", "+-1", "++1", "abc", "0x10", "1 ", "4294967296", "99999999999999999999"}},
        {"-x",
         {"0", "-2.5e1", ".5", "+3.", "1e308", "inf", "+INF", "-inf"},
         {"", "-", "+", ".", "e5", "1,5", "12abc", " 1", "1e", "0x10", "nan", "infinity", "1e999"}},
    };
    Tool tool;
    tool.setStrictNumbers();
    tool.addSint("i", nullptr, "d");
    tool.addUint("u", nullptr, "d");
    tool.addFloat("x", nullptr, "d");
    for (const auto& [option, accepted, refused] : cases) {
        for (const std::string& text : accepted)
            EXPECT_EQ(tool.run(Strings{option, text}).err, "");
        for (const std::string& text : refused)
            EXPECT_EQ(tool.run(Strings{option, text}).err,
                      usageError("bad value '" + text + "' of option " + option));
    }
}

TEST(QMCmdLine, DumpShowsTheArgumentsAndEveryOption)
{
    Tool tool;
    tool.addFlag("f", nullptr, "A flag.");
    tool.addUintArray("u", "numbers", "Two.", true, 2);
    const auto dumped = [&tool](const std::string& arguments, bool present, const std::string& values) {
        const std::string rule = "\n---------------------------------------------\n";
        const std::string truth = present ? "true" : "false";
        EXPECT_EQ(capture([&] { tool.dump(); }).out,
                  "appName: tool\nappDescShort: Short.\nappDescLong: Long.\nnumOptions: 2\n"
                  "usingStandardOptions: false\nformal argc: " +
                      arguments + rule +
                      "shortName: f\nlongName: (none)\ndescription: A flag.\nisRequired: false\nisPresent: " +
                      truth + "\ntype: FLAG\nvalue: " + truth + '\n' + rule +
                      "shortName: u\nlongName: numbers\ndescription: Two.\nisRequired: true\nisPresent: " +
                      truth + "\ntype: UNSIGNED-INT\nnumArgs: 2\nvalues:" + values + '\n');
    };
    dumped("-1\nformal argv: ", false, "");
    tool.run("-f -u 1 2");
    dumped("5\nformal argv:   [0] program\n  [1] -f\n  [2] -u\n  [3] 1\n  [4] 2\n", true, " 1 2");
}

}} // namespace Quillmoran::Testing
