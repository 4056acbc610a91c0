// The code of a chunk table, which LASzip's interface does not offer: 32-bit integers, each predicted by the one
// before it, in an adaptive arithmetic code.
//
// Sources: A. Said, "Introduction to Arithmetic Coding - Theory and Practice", HP Laboratories HPL-2004-76, 2004,
// and "FastAC" by the same author; M. Isenburg, "LASzip: lossless compression of LiDAR data", Photogrammetric
// Engineering & Remote Sensing 79(2), 2013.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Quillmoran {

struct LASzipTableEntry
{
    std::uint32_t numPoints = 0; // coded only if the chunks differ in it
    std::uint32_t numBytes = 0;
};

namespace LASzipTableCode {

// `variable`: the chunks have different numbers of points.
std::vector<unsigned char> encode(std::span<const LASzipTableEntry> entries, bool variable);

// Decodes up to `count` entries from the beginning of `code`, which may be longer. `maxBytes` limits the sum of
// the sizes of the chunks. Returns nothing if the code is damaged or ends too early, if a chunk is empty, or if
// the limit is exceeded.
std::optional<std::vector<LASzipTableEntry>> decode(std::span<const unsigned char> code, std::size_t count,
                                                    bool variable, std::uint64_t maxBytes);

} // namespace LASzipTableCode

} // namespace Quillmoran
