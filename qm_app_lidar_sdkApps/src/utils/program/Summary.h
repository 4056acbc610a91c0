// The summary of a point source that a verbose run prints.
#pragma once

#include <cstdio>

namespace Quillmoran {

class PointSource;

namespace Utils {

// `fileName` may be null. The line about the pre-compression point count begins on standard output even for
// other streams: scripts look for it there.
void printHeader(std::FILE* stream, const PointSource& source, const char* fileName);

} // namespace Utils

} // namespace Quillmoran
