// Command lines, one argument per line, for a parser with an option of each kind and all common options of the
// programs.
#include "cli/QMCmdLine.h"
#include "support/FuzzTarget.h"
#include "utils/program/Utils.h"

namespace Quillmoran::Fuzz {

namespace {

struct Exit
{};

void declare(QMCmdLine& cmdLine)
{
    cmdLine.setExitHandler([](int) { throw Exit(); });
    cmdLine.setVersionNumbers(1, 1, 4);
    Utils::addCommonOptions(cmdLine);
    Utils::addTXTPointReaderOptions(cmdLine);
    Utils::addFilterOptions(cmdLine);
    Utils::addOutFieldsOption(cmdLine);
    Utils::addSubsampleOption(cmdLine);
    Utils::addCropOption(cmdLine);
    Utils::addDepthOption(cmdLine);
    cmdLine.addBool("b", "bool", "a bool");
    cmdLine.addSint("si", "sint", "an int");
    cmdLine.addUintArray("ua", nullptr, "each time it occurs", false, -1);
    cmdLine.addSintArray("sa", "sints", "two at a time", false, 2);
    cmdLine.addStringArray("rest", "all", "all that remain", false, 0);
    cmdLine.addStringArray("x", "extra", "positional", false, -1);
    cmdLine.setExtra("x");
    cmdLine.setUndocumented("b");
}

// The queries of a program after a successful parse.
void query(const QMCmdLine& cmdLine)
{
    const PointInfo layout = layoutXYZ({channel("Intensity", UINT16)});
    const Scoped<PointSource> source(
        MemoryPointSource::make(layout, {{0, 1}, {0, 1}, {0, 1}, {7, 8}}).detach());
    const Scoped<PointSource> chosen = Utils::handleFilterOptions(cmdLine, source);
    Utils::getOutFields(cmdLine, *chosen);
    Utils::getFraction(cmdLine);
    Utils::getCropBox(cmdLine);
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    Utils::setTextOptions(*opener, false, cmdLine);
    std::size_t count = 0;
    cmdLine.getUintArray("ua", count);
    cmdLine.getSintArray("sints", count);
    cmdLine.getStringArray("all", count);
    cmdLine.getStringArray("extra", count);
    cmdLine.getBool("bool");
    cmdLine.getSint("sint");
    cmdLine.getUint("depth");
}

} // namespace

std::uint64_t runCommandLine(Input input)
{
    InputReader reader(input);
    std::vector<std::string> arguments = {"program"};
    while (!reader.rest().empty())
        arguments.push_back(reader.takeLine());
    std::vector<const char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    QMCmdLine cmdLine("program", "short", "long", true);
    declare(cmdLine);
    try {
        cmdLine.parse(static_cast<int>(argv.size()), argv.data());
        query(cmdLine);
        cmdLine.dump();
    } catch (const Exit&) {
        // help, or a usage error
    }
    return 0;
}

} // namespace Quillmoran::Fuzz
