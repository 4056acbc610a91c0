// A grid on which the disk form of an R-tree stores boxes in 32 bits. Storing rounds to the nearest line, so
// each box is made larger by a step first: a query that meets a box meets its stored form.
#pragma once

#include <vxunpack/Bounds.h>

namespace Quillmoran {

class BoxGrid
{
public:
    // For boxes within these finite bounds, or bounds that are empty.
    explicit BoxGrid(const Bounds& bounds);

    const double* steps() const noexcept { return m_steps; } // of x, y and z
    Bounds widen(const Bounds& box) const;

private:
    double m_steps[3];
};

} // namespace Quillmoran
