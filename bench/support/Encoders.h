// The two ways of compressing the points of a LAS or LAZ file that are compared, and what shows that both
// have kept them. All failures are thrown.
#pragma once

#include <vxunpack/VX7PointWriter.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran::Benchmarks {

struct PackResult
{
    std::int64_t numPoints = 0;
    std::vector<VX7PointWriter::ChannelSummary> channels;
};

// With default options, which lose nothing.
PackResult packVXL(const std::string& input, const std::string& output, unsigned numThreads);

// Reads and writes through LASzip alone. The output has the header and the points of the input, in the fields
// that their format defines, without what a .vxl file would not hold either: bytes of the owner and wave
// packets; and without records, but for the one that describes the compression.
// The spatial index, where one is wanted, is a file of its own beside the output: its name ends in .lax.
void compressLAZ(const std::string& input, const std::string& output, bool isIndexed = false);

// Error unless both files have the same channels with the same bits in the same order.
void requireSamePoints(const std::string& expected, const std::string& actual);

} // namespace Quillmoran::Benchmarks
