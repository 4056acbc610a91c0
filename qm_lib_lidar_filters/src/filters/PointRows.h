// Points as rows of bytes: the samples of a point one after the other, without padding. A sort moves points
// in this form.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

class PointRows
{
public:
    // Throws General "unsupported datatype" for a channel of an unknown type.
    explicit PointRows(const PointInfo& layout);

    std::size_t getRowSize() const noexcept { return m_rowSize; }

    // Copy `count` points between rows and a block, from index `first` of the block on. The block must be
    // large enough and begin with the channels of the layout: InvalidArgument "number of channels must the
    // same", "datatype are not the same".
    void pack(unsigned char* rows, const PointData& block, std::size_t first, std::size_t count) const;
    void unpack(PointData& block, std::size_t first, const unsigned char* rows, std::size_t count) const;

private:
    void checkLayout(const PointData& block) const;

    std::vector<DataType> m_types; // of the channels
    std::size_t m_rowSize = 0;     // bytes
};

} // namespace Quillmoran
