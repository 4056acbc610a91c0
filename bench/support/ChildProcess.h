// Runs programs, this one included, to see what a piece of work takes on its own.
#pragma once

#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

struct Usage
{
    double seconds = 0;
    double cpuSeconds = 0;    // of all threads, the system's share included
    double othersSeconds = 0; // CPU time that the machine spent on everything else meanwhile
    // Counts what the parent held when it started the child, too: it must be small.
    double peakBytes = 0;
};

// One for each round.
using Usages = std::vector<Usage>;

// The first word is a path, or a name to be found as a shell would. What the program prints goes to the file.
// Throws when it cannot be started or fails.
Usage runProgram(const std::vector<std::string>& words, const std::string& output = "/dev/null");

// This program with other arguments.
Usage runAgain(const std::vector<std::string>& arguments);

// Such seconds per second, over all rounds: a number of cores. The system counts others' in hundredths of a
// second, so that a single short run tells nothing.
double coresOf(const Usages& usages, double Usage::*seconds);

} // namespace Quillmoran::Benchmarks
