// What vxpack says about the file that it has written.
#pragma once

#include "encode/VX7PointWriter.h"

#include <cstdint>
#include <cstdio>

namespace Quillmoran {

// A line for each kernel channel: how it is coded, and in how many bytes.
void printPackReport(std::FILE* stream, const VX7PointWriter& writer, std::int64_t numPoints);

} // namespace Quillmoran
