// Reads the blocks of an iterator into two buffers in turn, so that the next block can be read while others
// work on the present one.
#pragma once

#include "framework/PointIterator.h"
#include "platform/Object.h"

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

    const PointData& points() const noexcept { return m_blocks[m_present].points; }
    std::size_t count() const noexcept { return m_blocks[m_present].count; } // 0: the end

    // May run on any thread while others read the present block.
    void readNext()
    {
        Block& next = m_blocks[1 - m_present];
        next.count = m_iterator->getNextPoints(next.points);
    }
    void advance() noexcept { m_present = 1 - m_present; }

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
