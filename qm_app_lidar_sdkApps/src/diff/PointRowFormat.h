// Points as rows of bytes whose bytes are equal if and only if the samples of two points are, even if their
// channels have different types. A row ends with the index of its point.
//
//   samples: their bytes, with 0.0 for -0.0; an ExactNumber where the types differ | zeros | index, 8 bytes
#pragma once

#include "diff/DescriptionComparison.h"
#include "diff/DiffReport.h"
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class PointRowFormat
{
public:
    explicit PointRowFormat(const ComparedChannels& channels);

    // Bytes of a row, and of its samples; multiples of 8.
    std::size_t getRowSize() const noexcept { return m_sampleBytes + sizeof(std::uint64_t); }
    std::size_t getSampleBytes() const noexcept { return m_sampleBytes; }

    // Packs the first `count` points of a block with either layout; the first one has the index `firstPoint`.
    void pack(unsigned char* rows, const PointData& block, std::size_t count, std::uint64_t firstPoint) const;
    // A hash of the samples of each row.
    void getKeys(std::uint64_t* keys, const unsigned char* rows, std::size_t count) const;
    std::uint64_t getIndex(const unsigned char* row) const noexcept;
    DiffReport::Surplus::Point unpack(const unsigned char* row) const;

private:
    struct Column
    {
        std::size_t channel; // in the layouts
        DataType type;       // INVALID: an ExactNumber
        std::size_t position;
    };

    std::vector<Column> m_columns;
    std::size_t m_sampleBytes = 0;
};

} // namespace Quillmoran
