#include "apps/SpeedTable.h"

#include "apps/Goals.h"
#include "files/QMFileUtils.h"
#include "support/ChildProcess.h"
#include "support/Statistics.h"
#include <vxunpack/LASPointReader.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>

namespace Quillmoran::Benchmarks {

namespace {

struct Way
{
    const char* name;
    const char* command; // of this program
    const char* ending;
    const char* numThreads; // null: the way has no choice
    double goal;            // of LASzip's speed; 0 for none
    bool needsCores;        // more than one
};

constexpr Way ways[] = {
    {"LASzip", "laz", ".laz", nullptr, 0, false},
    {"vxl, 1 thread", "vxl", ".vxl", "1", Goals::oneThread, false},
    {"vxl, 2 threads", "vxl", ".vxl", "2", Goals::twoThreads, true},
};
constexpr std::size_t numWays = std::size(ways);

std::int64_t countPoints(const std::string& file)
{
    const Scoped<LASPointReader> reader(LASPointReader::create());
    reader->init(file.c_str(), false);
    return reader->getNumPoints();
}

void printWay(const Way& way, const Usages& own, const Usages& peer, std::int64_t numPoints)
{
    const std::size_t count = own.size();
    const double seconds = spreadOfRounds(count, [&](std::size_t i) { return own[i].seconds; }).median;
    const double cpu = spreadOfRounds(count, [&](std::size_t i) { return own[i].cpuSeconds; }).median;
    const double peak = spreadOfRounds(count, [&](std::size_t i) { return own[i].peakBytes; }).most;
    const double others = coresOf(own, &Usage::othersSeconds);
    std::printf("  %-15s %9.2f %9.2f %6.2f %6.2f %10.3f %9.1f", way.name, seconds, cpu,
                coresOf(own, &Usage::cpuSeconds), others, static_cast<double>(numPoints) / seconds / 1e6,
                peak / 1e6);
    if (way.goal == 0) {
        std::putchar('\n');
        return;
    }
    const auto ratio = [&](double Usage::*taken) {
        return spreadOfRounds(count, [&](std::size_t i) { return peer[i].*taken / own[i].*taken; });
    };
    const Spread speed = ratio(&Usage::seconds);
    std::printf("  %18s  %18s  %.2f %s", toString(speed, 2).c_str(),
                toString(ratio(&Usage::cpuSeconds), 2).c_str(), way.goal,
                judge(speed.median >= way.goal, way.needsCores, others));
    if (static_cast<double>(numPoints) <= Goals::peakPoints)
        std::printf(", memory %s", mark(peak < Goals::peakBytes));
    std::putchar('\n');
}

void printSpeed(const std::string& file, int numRounds, const std::string& directory)
{
    std::string outputs[numWays];
    std::vector<std::string> commands[numWays];
    for (std::size_t i = 0; i < numWays; ++i) {
        const Way& way = ways[i];
        const std::string threads = way.numThreads ? way.numThreads : "";
        outputs[i] = directory + "/speed";
        outputs[i].append(threads).append(way.ending);
        commands[i] = {way.command, file, outputs[i]};
        if (way.numThreads)
            commands[i].push_back(threads);
        // The outputs of this run are files that the rounds write over.
        runAgain(commands[i]);
        runAgain({"verify", file, outputs[i]});
    }

    Usages usages[numWays];
    for (int round = 0; round < numRounds; ++round)
        for (std::size_t i = 0; i < numWays; ++i) {
            const std::size_t turn = (i + static_cast<std::size_t>(round)) % numWays;
            usages[turn].push_back(runAgain(commands[turn]));
        }

    const std::int64_t numPoints = countPoints(file);
    std::printf("\n%s, %lld points, %d rounds\n", QMFileSpec(file.c_str()).basename().c_str(),
                static_cast<long long>(numPoints), numRounds);
    std::printf("  %-15s %9s %9s %6s %6s %10s %9s  %-18s  %-18s  %s\n", "", "seconds", "CPU s", "cores",
                "others", "Mpoints/s", "peak MB", "speed / LASzip", "by CPU time", "goal");
    for (std::size_t i = 0; i < numWays; ++i)
        printWay(ways[i], usages[i], usages[0], numPoints);
    for (const std::string& output : outputs)
        QMFileUtils::deleteFile(output.c_str());
}

} // namespace

void printSpeeds(const std::vector<std::string>& files, int numRounds, const std::string& directory)
{
    std::printf(
        "\nSpeeds, of whole runs from a LAS file. Medians of the rounds; ratios are taken within a round:\n"
        "median (least..most), by the clock and by the CPU time of all threads. Goals: %.2f of LASzip's\n"
        "speed with one thread, %.2f with two, less than %.0f MB at 10 million points. Cores: what a run got "
        "of\n"
        "the machine, and what others had of it meanwhile; where they had some, two threads cannot show what "
        "they\n"
        "do, and a goal that they miss is marked \"busy\".\n",
        Goals::oneThread, Goals::twoThreads, Goals::peakBytes / 1e6);
    for (const std::string& file : files)
        printSpeed(file, numRounds, directory);
}

} // namespace Quillmoran::Benchmarks
