// Runs the rows of a table in turn, each as a process of its own.
#pragma once

#include "apps/CompareInput.h"
#include "apps/CompareRows.h"
#include "support/ChildProcess.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

struct Surroundings
{
    std::string directory;   // for outputs
    const Input* sample;     // of at most a million points, or null
    std::string pdalVersion; // empty where there is none that works
    unsigned numCores;
};

// "2.2.0", once a file has been read and written with the pdal on the PATH; else empty.
std::string findPDAL(const std::string& laz, const std::string& directory);

struct RowResult
{
    const Row* row;
    unsigned numThreads;
    std::int64_t numPoints;
    Usages usages;
};

// Of the rows that can be run here. In a round all have about the same share of the machine, so it is the
// ratios within rounds that count. A first round, not counted, makes the outputs that the others write over.
std::vector<RowResult> runRows(const RowTable& table, const Input& input, const Surroundings& surroundings,
                               int numRounds);

} // namespace Quillmoran::Benchmarks
