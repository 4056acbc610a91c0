// Runs this program again, with other arguments, to see what a piece of work takes on its own.
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

// Throws when the child fails.
Usage runAgain(const std::vector<std::string>& arguments);

} // namespace Quillmoran::Benchmarks
