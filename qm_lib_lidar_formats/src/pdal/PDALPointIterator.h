// Delivers the points of one query of a BPF file: reads all of them in order, a slice at a time, and copies
// those that the box and the sampling keep.
#pragma once

#include "pdal/PDALBPFInput.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/PointIterator.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace Quillmoran {

class PDALPointIterator final : public PointIterator
{
public:
    // `channels` are those of the file, one per dimension. See PDALPointReader::createIterator for the
    // errors.
    PDALPointIterator(const char* path, const BPFHeader& header, const PointInfo& channels,
                      const Bounds& bounds, double fraction, const PointInfo& layout,
                      ProgressDelegate* delegate);

    // Checks the delegate once per slice, and throws Cancelled "operation cancelled." if it asks to stop.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    void openInput(const char* path, const BPFHeader& header);
    void selectDimensions(const PointInfo& channels, const PointInfo& layout);
    bool refill();
    void store(std::size_t point);

    Scoped<FileIO::Imp> m_plain; // uncompressed copy of a compressed file
    std::unique_ptr<PDALBPFInput> m_input;
    std::vector<std::size_t> m_dimensions; // of the requested channels
    std::vector<double> m_values;          // of one point, per dimension

    PointData m_slice;
    std::size_t m_cursor = 0;
    std::size_t m_fill = 0;
};

} // namespace Quillmoran
