// Delivers the points of one query of a LAS or LAZ file: reads its records in order, a slice at a time, and
// unpacks the wanted channels of the points that the box and the sampling keep.
#pragma once

#include "las/points/LASExtraBytes.h"
#include "las/points/LASRecordReader.h"
#include <vxunpack/PointIterator.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Quillmoran {

class LASPointIterator final : public PointIterator
{
public:
    // The file that is read.
    struct File
    {
        IO* io; // retained
        const LASHeader& header;
        const LASzipChunks& chunks;
        const PointInfo& channels;
        const std::vector<LASExtraField>& extraFields;
    };

    // See LASPointReader::createIterator for the errors.
    LASPointIterator(const File& file, const Bounds& bounds, double fraction, const PointInfo& layout,
                     ProgressDelegate* delegate);

    // Checks the delegate once per slice, and throws Cancelled "operation cancelled." if it asks to stop.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    // A requested channel: a field of the point format, or one of the extra bytes.
    struct Column
    {
        LASField field;
        std::optional<LASExtraField> extra;
    };

    void chooseColumns(const File& file, const PointInfo& layout);
    bool refill();
    void copyRun(PointData& buffer, std::size_t filled, std::size_t first, std::size_t count) const;

    std::unique_ptr<LASRecordReader> m_reader;
    std::vector<Column> m_columns; // in the order of the requested channels
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
