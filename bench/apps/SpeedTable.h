// How fast files are written as .vxl, beside LASzip's compression of the same files on the same machine.
#pragma once

#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

// For each file the ways are run in turn, each as a process of its own: in a round all have about the same
// share of the machine, so it is the ratios within rounds that count. Outputs are checked first.
void printSpeeds(const std::vector<std::string>& files, int numRounds, const std::string& directory);

} // namespace Quillmoran::Benchmarks
