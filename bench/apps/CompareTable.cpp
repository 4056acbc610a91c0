#include "apps/CompareTable.h"

#include "apps/Comparison.h"
#include "files/QMFileSpec.h"
#include "support/LASzipReads.h"
#include "support/Statistics.h"

#include <cstdio>
#include <fstream>

namespace Quillmoran::Benchmarks {

namespace {

#ifdef __clang__
constexpr const char* compiler = "clang " __clang_version__;
#else
constexpr const char* compiler = "g++ " __VERSION__;
#endif

std::string getProcessor()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("model name"))
            return line.substr(line.find(':') + 2);
    return "unknown processor";
}

void printFigures(const RowResult& result)
{
    const Usages& usages = result.usages;
    const auto figures = [&](auto figure) {
        return spreadOfRounds(usages.size(), [&](std::size_t round) { return figure(usages[round]); });
    };
    const Spread wall = figures([](const Usage& usage) { return usage.seconds; });
    const Spread cpu = figures([](const Usage& usage) { return usage.cpuSeconds; });
    const Spread peak = figures([](const Usage& usage) { return usage.peakBytes / bytesPerMiB; });
    std::printf("%-17.*s %20s %5.*f %4.2f %6.2f %5.1f", static_cast<int>(result.row->name.size()),
                result.row->name.data(), toString(wall, wall.most < 10 ? 3 : 2).c_str(),
                cpu.median < 1 ? 3 : 2, cpu.median, coresOf(usages, &Usage::othersSeconds),
                static_cast<double>(result.numPoints) / wall.median / 1e6, peak.most);
}

struct Judgement
{
    Mode mode;
    bool isJudged; // by goals
};

// Returns whether the floor is missed.
bool printVerdict(const Goal& goal, const RowResult& own, double reached, const Judgement& judgement)
{
    const bool isCheck = judgement.mode == Mode::check;
    const double bound = (isCheck ? goal.floor : goal.bound).of(own.numThreads);
    if (bound == 0)
        return false;
    std::printf(" %s %.2f", isAtLeast(goal.quantity) ? ">=" : "<=", bound);
    if (!isCheck && !judgement.isJudged)
        return false;
    const bool isMet = isAtLeast(goal.quantity) ? reached >= bound : reached <= bound;
    const bool needsCores = own.numThreads > 1 && goal.quantity != Quantity::peak;
    const std::string verdict = judge(isMet, needsCores, coresOf(own.usages, &Usage::othersSeconds));
    std::printf(" %s", verdict.c_str());
    return isCheck && verdict == mark(false);
}

// Likewise.
bool printGoal(const Goal& goal, const RowResult& own, const std::vector<RowResult>& results,
               const Judgement& judgement)
{
    std::printf("  %-25s", describe(goal).c_str());
    const Comparison comparison(goal, own, results);
    if (!comparison.isPossible()) {
        std::printf(" %20s", "no peer");
        return false;
    }
    const Spread reached = comparison.getRatio(&Usage::seconds);
    if (goal.quantity == Quantity::peak)
        std::printf(" %20s %5s", toString(reached, 1).c_str(), "");
    else
        std::printf(" %20s %5.2f", toString(reached, 2).c_str(),
                    comparison.getRatio(&Usage::cpuSeconds).median);
    return printVerdict(goal, own, reached.median, judgement);
}

void printLegend(Mode mode)
{
    std::printf(
        "Whole processes, run in turn: medians of the rounds, and least..most. busy: cores that others had\n"
        "meanwhile; what several threads miss while others have some is marked so. Mpts/s: points of the\n"
        "file, however many are taken; PDAL writes text of one million at most. MiB: peak memory.\n"
        "Ratios are taken within a round, by the clock; CPU: the same of the CPU time of all threads.\n"
        "over null: seconds beyond those of null with as many threads.\n");
    if (mode == Mode::goals)
        std::printf("Goals are for 10 million points and, for the start of programs, 0.1 million.\n");
    if (mode == Mode::check)
        std::printf("Floors, far below the goals: what is worse than them has gone wrong.\n");
}

} // namespace

void printHeading(const Surroundings& surroundings, Mode mode, int numRounds)
{
    const std::string pdal =
        surroundings.pdalVersion.empty() ? "no PDAL" : "PDAL " + surroundings.pdalVersion;
    std::printf("%s, %u cores; %s; LASzip %s; %s; rounds: %d, and one not counted\n", getProcessor().c_str(),
                surroundings.numCores, compiler, getLASzipVersion().c_str(), pdal.c_str(), numRounds);
    printLegend(mode);
}

std::vector<std::string> printTable(const RowTable& table, const Input& input,
                                    const std::vector<RowResult>& results, Mode mode)
{
    const auto numPoints = static_cast<double>(input.numPoints);
    std::printf("\n%s: %lld points, %.3f bytes a point as .vxl, %.3f as .laz; %lld points in the window\n",
                QMFileSpec(input.stem.c_str()).basename().c_str(), static_cast<long long>(input.numPoints),
                input.vxlBytes / numPoints, input.lazBytes / numPoints,
                static_cast<long long>(input.numInWindow));
    std::printf("%-17s %20s %5s %4s %6s %5s  %-25s %20s %5s  %s\n", "", "seconds", "CPU s", "busy", "Mpts/s",
                "MiB", "compared", "ratio", "CPU", mode == Mode::check ? "floor" : "goal");
    const Judgement judgement{mode, mode == Mode::goals && numPoints >= table.judgedPoints};
    std::vector<std::string> below;
    for (const RowResult& result : results) {
        printFigures(result);
        bool isFirst = true;
        for (const Goal& goal : table.goals) {
            if (goal.row != result.row->name)
                continue;
            if (!isFirst)
                std::printf("\n%62s", "");
            isFirst = false;
            if (printGoal(goal, result, results, judgement))
                below.push_back(std::string(goal.row) + ": " + describe(goal));
        }
        std::printf("\n");
    }
    std::fflush(stdout);
    return below;
}

} // namespace Quillmoran::Benchmarks
