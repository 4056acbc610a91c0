// The grid to which the disk form of an R-tree rounds the coordinates of boxes, in 32 bits. Each box is
// enlarged by a step before it is rounded, so that a query that meets a box also meets its rounded form.
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
