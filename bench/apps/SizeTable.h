// What files take as .vxl and as LAZ: a table of files, a table of the channels of the larger ones.
#pragma once

#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

// Every output is checked against its input. `directory` is for outputs.
void printSizes(const std::vector<std::string>& files, const std::string& directory);

} // namespace Quillmoran::Benchmarks
