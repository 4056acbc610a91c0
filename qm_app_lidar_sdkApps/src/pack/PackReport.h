// What vxpack says about the file that it has written.
#pragma once

#include <vxunpack/VX7PointWriter.h>

#include <cstdint>
#include <cstdio>

namespace Quillmoran {

// A line for each kernel channel: how it is coded, and in how many bytes.
void printPackReport(std::FILE* stream, const VX7PointWriter& writer, std::int64_t numPoints);

// Warns when the file could not keep the scale that the source has for a coordinate.
void warnOfLostScales(const VX7PointWriter& writer, const PointInfo& layout, const char* output);

} // namespace Quillmoran
