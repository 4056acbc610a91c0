#include "apps/CompareRun.h"

#include "support/PagePool.h"
#include <vxunpack/Base.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Quillmoran::Benchmarks {

namespace {

constexpr std::string_view sampleFile = "{sample.laz}";
// The 16 of our own text, in their order.
constexpr const char* pdalColumns =
    "X:3,Y:3,Z:3,Intensity:0,ReturnNumber:0,NumberOfReturns:0,ScanDirectionFlag:0,EdgeOfFlightLine:0,"
    "Classification:0,ScanAngleRank:0,UserData:0,PointSourceId:0,GpsTime:6,Red:0,Green:0,Blue:0";

// Null where there is none.
const Input* getInput(const Row& row, const Input& input, const Surroundings& surroundings)
{
    const bool usesSample = row.arguments.find(sampleFile) != std::string_view::npos;
    return usesSample ? surroundings.sample : &input;
}

std::vector<std::string> startOfCommand(Program program)
{
    switch (program) {
    case Program::laszip:
        return {"/proc/self/exe"};
    case Program::pdal:
        return {"pdal"};
    case Program::vxunpack:
        return {programPath("vxunpack")};
    case Program::vxpack:
        return {programPath("vxpack")};
    }
    QM_THROW(ErrorCode::General, "no such program");
}

void replace(std::string& word, std::string_view what, const std::string& by)
{
    if (const std::size_t at = word.find(what); at != std::string::npos)
        word.replace(at, what.size(), by);
}

std::vector<std::string> makeCommand(const Row& row, const Input& input, const Surroundings& surroundings)
{
    std::vector<std::string> words = startOfCommand(row.program);
    std::istringstream arguments{std::string(row.arguments)};
    for (std::string word; arguments >> word;) {
        replace(word, "{las}", input.stem + ".las");
        replace(word, "{laz}", input.stem + ".laz");
        replace(word, "{vxl}", input.stem + ".vxl");
        replace(word, "{spatial}", input.stem + "_spatial.vxl");
        if (surroundings.sample)
            replace(word, sampleFile, surroundings.sample->stem + ".laz");
        replace(word, "{out}", surroundings.directory);
        replace(word, "{columns}", pdalColumns);
        replace(word, "{points}", std::to_string(input.numPoints));
        replace(word, "{inside}", std::to_string(input.numInWindow));
        replace(word, "{minX}", input.minX);
        replace(word, "{maxX}", input.maxX);
        replace(word, "{minY}", input.minY);
        replace(word, "{maxY}", input.maxY);
        words.push_back(word);
    }
    return words;
}

// Of what the command wrote when it ran before.
std::uint64_t outputSize(const std::vector<std::string>& command, const std::string& directory)
{
    std::uint64_t bytes = 0;
    for (const std::string& word : command) {
        std::error_code missing;
        if (word.compare(0, directory.size(), directory) == 0)
            if (const auto size = std::filesystem::file_size(word, missing); !missing)
                bytes += size;
    }
    return bytes;
}

bool canRun(const Row& row, const RowTable& table, const Surroundings& surroundings)
{
    if (row.program == Program::pdal && surroundings.pdalVersion.empty())
        return false;
    return row.numThreads != allCores || surroundings.numCores >= table.leastCores;
}

} // namespace

std::string findPDAL(const std::string& laz, const std::string& directory)
{
    const std::string answer = directory + "/pdal_version.txt";
    try {
        runProgram({"pdal", "--version"}, answer);
        runProgram({"pdal", "translate", laz, directory + "/pdal.las"});
    } catch (const std::exception&) {
        return {};
    }
    // pdal 2.2.0 (...), between rulers
    std::ifstream file(answer);
    for (std::string word; file >> word;)
        if (word == "pdal" && file >> word)
            return word;
    return "of unknown version";
}

std::vector<RowResult> runRows(const RowTable& table, const Input& input, const Surroundings& surroundings,
                               int numRounds)
{
    std::vector<RowResult> results;
    std::vector<std::vector<std::string>> commands;
    for (const Row& row : table.rows) {
        const Input* read = getInput(row, input, surroundings);
        if (!read || !canRun(row, table, surroundings))
            continue;
        const unsigned numThreads = row.numThreads == allCores ? surroundings.numCores : row.numThreads;
        results.push_back({&row, numThreads, read->numPoints, {}});
        commands.push_back(makeCommand(row, input, surroundings));
    }

    for (int round = 0; round <= numRounds * table.runsPerRound; ++round)
        for (std::size_t i = 0; i < results.size(); ++i) {
            refreshPages(surroundings.directory, outputSize(commands[i], surroundings.directory));
            const Usage usage = runProgram(commands[i]);
            if (round > 0)
                results[i].usages.push_back(usage);
        }
    return results;
}

} // namespace Quillmoran::Benchmarks
