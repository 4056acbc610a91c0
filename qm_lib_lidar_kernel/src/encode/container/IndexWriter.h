// The spatial index of a file being written: a box for every so many points, and the chunk's payload.
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

    // The newer form rounds boxes to a grid; they are made larger first, so that each covers its points.
    // Boxes that are not finite can only be held by the older one, which is then written.
    void write(StreamWriter& out, std::uint8_t version) const;

private:
    void writeBoxes(StreamWriter& out) const;
    void writeTree(StreamWriter& out, const Bounds& all) const;

    std::uint32_t m_pointsPerEntry;
    std::uint32_t m_room = 0; // points that the last box may still take
    std::vector<Bounds> m_boxes;
};

} // namespace Quillmoran
