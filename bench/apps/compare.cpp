// Compares vxunpack and vxpack with LASzip and PDAL on the same points; scripts/compare.sh runs it.
//
//   compare goals|check|smoke DIRECTORY ROUNDS SMALL-FILE FILE ...
//
// The files are LAS files, the small one for what the start of a program takes; what is made of them stands
// beside them, and outputs in the directory. The other commands are pieces that need a process of their own,
// those of LASzip to be measured. It does no such work itself: a process that has ever been large makes its
// children look large.
#include "apps/CompareTable.h"
#include "support/Encoders.h"
#include "support/LASzipReads.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

namespace Quillmoran::Benchmarks {
namespace {

using Words = std::vector<std::string>;

constexpr std::int64_t mostInSample = 1050000;

// The largest that is not too large.
const Input* findSample(const std::vector<Input>& inputs)
{
    const Input* sample = nullptr;
    for (const Input& input : inputs)
        if (input.numPoints <= mostInSample && (!sample || input.numPoints > sample->numPoints))
            sample = &input;
    return sample;
}

// Returns whether nothing is below its floor.
bool compare(Mode mode, const std::string& directory, int numRounds, const Words& files)
{
    std::vector<Input> inputs;
    for (const std::string& file : files)
        inputs.push_back(prepareInput(file));
    const Input small = inputs.front();
    inputs.erase(inputs.begin());

    const Surroundings surroundings{directory, findSample(inputs), findPDAL(small.stem + ".laz", directory),
                                    std::max(std::thread::hardware_concurrency(), 1u)};
    printHeading(surroundings, mode, numRounds);
    Words below;
    const auto show = [&](const RowTable& table, const Input& input) {
        const auto results = runRows(table, input, surroundings, numRounds);
        const Words more = printTable(table, input, results, mode);
        below.insert(below.end(), more.begin(), more.end());
    };
    show(startUp, small);
    for (const Input& input : inputs)
        show(wholeRuns, input);
    for (const std::string& row : below)
        std::printf("%s%s\n", &row == &below.front() ? "\nBelow the floor:\n  " : "  ", row.c_str());
    return below.empty();
}

void requireCount(std::int64_t count, const std::string& expected)
{
    if (count != std::atoll(expected.c_str()))
        QM_THROW(ErrorCode::General, "%lld points where %s were expected", static_cast<long long>(count),
                 expected.c_str());
}

bool runPiece(const Words& words)
{
    const std::string& command = words[0];
    if (command == "decode" && words.size() == 3)
        requireCount(decodeWithLASzip(words[1]), words[2]);
    else if (command == "window" && words.size() == 7) {
        const Window window{std::atof(words[2].c_str()), std::atof(words[3].c_str()),
                            std::atof(words[4].c_str()), std::atof(words[5].c_str())};
        requireCount(readWindowWithLASzip(words[1], window), words[6]);
    } else if (command == "encode" && words.size() == 3)
        compressLAZ(words[1], words[2]);
    else if (command == "twin" && words.size() == 3)
        compressLAZ(words[1], words[2], true);
    else if (command == "verify" && words.size() == 3)
        requireSamePoints(words[1], words[2]);
    else if (command == "describe" && words.size() == 3)
        describePoints(words[1], words[2]);
    else
        return false;
    return true;
}

int run(const Words& words)
{
    constexpr struct
    {
        const char* name;
        Mode mode;
    } modes[] = {{"goals", Mode::goals}, {"check", Mode::check}, {"smoke", Mode::smoke}};
    for (const auto& [name, mode] : modes)
        if (words.size() >= 5 && words[0] == name && std::atoi(words[2].c_str()) > 0) {
            const Words files(words.begin() + 3, words.end());
            return compare(mode, words[1], std::atoi(words[2].c_str()), files) ? 0 : 1;
        }
    if (!words.empty() && runPiece(words))
        return 0;
    std::fprintf(stderr, "usage: compare goals|check|smoke DIRECTORY ROUNDS SMALL-FILE FILE ...\n");
    return 1;
}

} // namespace
} // namespace Quillmoran::Benchmarks

int main(int argc, char** argv)
{
    try {
        return Quillmoran::Benchmarks::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
