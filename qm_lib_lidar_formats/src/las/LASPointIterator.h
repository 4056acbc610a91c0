// Delivers the points of one query of a LAS or LAZ file: reads its records in order, a slice at a time, and
// unpacks the wanted channels of the points that the box and the sampling keep.
#pragma once

#include "las/points/LASFields.h"
#include "las/points/LASRecordReader.h"
#include <vxunpack/PointIterator.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace Quillmoran {

class LASPointIterator final : public PointIterator
{
public:
    // `channels` are those of the file. Retains `io`. See LASPointReader::createIterator for the errors.
    LASPointIterator(IO* io, const LASHeader& header, const LASzipChunks& chunks, const PointInfo& channels,
                     const Bounds& bounds, double fraction, const PointInfo& layout,
                     ProgressDelegate* delegate);

    // Checks the delegate once per slice, and throws Cancelled "operation cancelled." if it asks to stop.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    bool refill();
    void copyRun(PointData& buffer, std::size_t filled, std::size_t first, std::size_t count) const;

    std::unique_ptr<LASRecordReader> m_reader;
    std::vector<LASField> m_fields; // of the requested channels, in their order
    LASFields::Axis m_axes[3];
    std::int64_t m_remaining = 0; // points to read

    // The current slice.
    std::size_t m_sliceSize = 0; // points
    std::vector<unsigned char> m_records;
    std::vector<double> m_coordinates[3];
    std::size_t m_cursor = 0;
    std::size_t m_fill = 0;
};

} // namespace Quillmoran
