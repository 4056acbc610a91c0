// The spatial index of a file, as LAStools and LASzip write it (.lax): the cells of a quadtree and, for each, the
// intervals of the file's points that it contains.
//
//   "LASX" version 4 | "LASS" type 4 | "LASQ" version 4, levels 4, level index 4, implicit levels 4, box 4 * 4 |
//   "LASV" version 4, cells 4 | per cell: index 4, intervals 4, points 4 | per interval: first point 4, last 4
#pragma once

#include <vxunpack/Bounds.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Quillmoran {

class LASSpatialIndex
{
public:
    static constexpr std::uint64_t maxBytes = 64 << 20; // larger ones are not read

    // Empty unless the index is complete and has each of the points in a cell.
    static std::optional<LASSpatialIndex> parse(std::span<const unsigned char> bytes,
                                                std::uint64_t numPoints);

    // For each range of points, whether it has points of cells that overlap the box. Range i begins with firsts[i]
    // and ends before firsts[i + 1]; the last number is an end.
    std::vector<bool> find(const Bounds& box, std::span<const std::uint64_t> firsts) const;

private:
    struct Interval
    {
        std::uint32_t first;
        std::uint32_t last; // included
    };
    struct Cell
    {
        Bounds::Range x;
        Bounds::Range y;
        std::size_t firstInterval;
        std::size_t endInterval;
    };

    std::vector<Cell> m_cells;
    std::vector<Interval> m_intervals;
};

} // namespace Quillmoran
