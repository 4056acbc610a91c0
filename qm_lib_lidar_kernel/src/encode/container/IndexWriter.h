// Builds the spatial index of a file, a box per `pointsPerEntry` consecutive points, and writes the chunk's
// payload.
#pragma once

#include <vxunpack/Bounds.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class PointData;
class StreamWriter;

class IndexWriter
{
public:
    explicit IndexWriter(std::uint32_t pointsPerEntry) : m_pointsPerEntry(pointsPerEntry) {}

    void add(const PointData& points, std::size_t count);

    // Version 2 rounds boxes to a grid; they are enlarged first, so that each still contains its points. Only
    // version 1 can store boxes that are not finite; such boxes are always written as version 1.
    void write(StreamWriter& out, std::uint8_t version) const;

private:
    std::uint32_t m_pointsPerEntry;
    std::uint32_t m_free = 0; // points that can still be added to the last box
    std::vector<Bounds> m_boxes;
};

} // namespace Quillmoran
