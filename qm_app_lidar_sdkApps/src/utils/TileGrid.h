// The grid on which the tree of an index stores the tiles' boxes in 32 bits. Storing rounds to the nearest
// line, so each box is made larger by a step first: a query that meets a tile meets its stored box.
#pragma once

#include "model/Bounds.h"

namespace Quillmoran {

class TileGrid
{
public:
    // For boxes within these finite bounds, or bounds that are empty.
    explicit TileGrid(const Bounds& bounds);

    const double* steps() const noexcept { return m_steps; } // of x, y and z
    Bounds widen(const Bounds& box) const;

private:
    double m_steps[3];
};

} // namespace Quillmoran
