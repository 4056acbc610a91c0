// Reports of vxpack about the written file.
#pragma once

#include <vxunpack/VX7PointWriter.h>

#include <cstdint>
#include <cstdio>

namespace Quillmoran {

// A line for each kernel channel with its coding and its size.
void printPackReport(std::FILE* stream, const VX7PointWriter& writer, std::int64_t numPoints);

// Warns if the file does not keep the scale of a coordinate.
void warnOfLostScales(const VX7PointWriter& writer, const PointInfo& layout, const char* output);

} // namespace Quillmoran
