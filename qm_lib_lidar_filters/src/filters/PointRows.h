// Points as rows of bytes, the samples of a point side by side without padding: the form in which points are
// moved one by one, as a sort does.
#pragma once

#include <vxunpack/PointData.h>

#include <cstddef>
#include <vector>

namespace Quillmoran {

class PointRows
{
public:
    // -1 "unsupported datatype" for a channel whose type is none of the known ones.
    explicit PointRows(const PointInfo& layout);

    std::size_t getRowSize() const noexcept { return m_rowSize; }

    // Both move `count` points between rows and a block from index `first` on. The block must hold them and
    // have the layout: InvalidArgument "number of channels must the same", "datatype are not the same".
    void pack(unsigned char* rows, const PointData& block, std::size_t first, std::size_t count) const;
    void unpack(PointData& block, std::size_t first, const unsigned char* rows, std::size_t count) const;

private:
    void checkLayout(const PointData& block) const;

    std::vector<DataType> m_types; // of the channels
    std::size_t m_rowSize = 0;     // bytes
};

} // namespace Quillmoran
