// Reads the blocks of an iterator into two buffers in turn, so that the next block can be read while others
// work on the present one.
#pragma once

#include <vxunpack/Object.h>
#include <vxunpack/PointIterator.h>

#include <cstddef>
#include <utility>

namespace Quillmoran {

class BlockReader
{
public:
    BlockReader(Scoped<PointIterator> iterator, const PointInfo& layout, std::size_t blockPoints)
        : m_iterator(std::move(iterator))
    {
        for (Block& block : m_blocks)
            block.points.init(layout, blockPoints);
    }

    // Calls visit(points, count) for each block; it calls readNext() while or after it works on them.
    template <class Visit>
    void forEach(Visit visit)
    {
        readNext();
        for (m_present = 1 - m_present; m_blocks[m_present].count != 0; m_present = 1 - m_present)
            visit(std::as_const(m_blocks[m_present].points), m_blocks[m_present].count);
    }

    // May run on any thread.
    void readNext()
    {
        Block& next = m_blocks[1 - m_present];
        next.count = m_iterator->getNextPoints(next.points);
    }

private:
    struct Block
    {
        PointData points;
        std::size_t count = 0;
    };

    Scoped<PointIterator> m_iterator;
    Block m_blocks[2];
    std::size_t m_present = 0;
};

} // namespace Quillmoran
