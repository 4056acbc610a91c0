// The commands that are compared, and what they are to reach beside each other: tables, and no more.
#pragma once

#include <span>
#include <string_view>

namespace Quillmoran::Benchmarks {

enum class Program
{
    laszip, // pieces of this program that call the library
    pdal,
    vxunpack,
    vxpack
};

constexpr unsigned allCores = 0;

struct Row
{
    std::string_view name;
    Program program;
    unsigned numThreads; // allCores for as many as the machine has
    // Words between spaces. In braces, files of the input by their ending, its points in spatial order, files
    // of the sample of an input that takes some programs too long, the window, the number of points, the
    // directory for outputs.
    std::string_view arguments;
};

enum class Quantity
{
    speed,    // in points per second, of the peer's
    wall,     // seconds, of the peer's
    overNull, // seconds beyond those of null with the same number of threads, of the peer's
    peak      // MiB, of no peer
};

// How far a row is to get with so many threads.
struct Bound
{
    double value = 0; // 0 for none
    double perFurtherThread = 0;

    constexpr double of(unsigned numThreads) const
    {
        return value + perFurtherThread * static_cast<double>(numThreads - 1);
    }
};

struct Goal
{
    std::string_view row;
    Quantity quantity;
    std::string_view peer; // a row
    Bound bound;           // at least, of a speed; at most, of anything else
    Bound floor;           // likewise: what --check still lets pass, at 1 million points
};

struct RowTable
{
    std::span<const Row> rows;
    std::span<const Goal> goals;
    unsigned leastCores; // from which on rows for allCores differ from the others
    double judgedPoints; // the fewest for which goals are meant
    int runsPerRound;    // short runs are repeated
};

extern const RowTable wholeRuns;
// What a small file takes, most of which is the start of the program.
extern const RowTable startUp;

} // namespace Quillmoran::Benchmarks
