// Where points are in a picture: the plane that it shows, and its cells.
#pragma once

#include <vxunpack/Bounds.h>

#include <cmath>
#include <cstddef>
#include <string>

namespace Quillmoran {

enum class View
{
    Top, // x to the right, y up; the highest point is visible
    Section // the distance along a line to the right, z up; the point farthest to the right of the line is visible
};

inline double lengthOf(const Bounds::Range& range)
{
    return range.max - range.min;
}

// A corridor around a line on the ground, for sections.
struct Corridor
{
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    double width = 0; // may be infinite

    double length() const { return std::hypot(x1 - x0, y1 - y0); }
};

// A value type. Lengths are in the units of the coordinates.
struct Projection
{
    View view = View::Top;
    Corridor corridor; // of a section

    // The range of the picture: x and y, or the distance along the line and z. Both ends are inside.
    Bounds::Range across, up;
    std::size_t columns = 0, rows = 0;
    double cellWidth = 1, cellHeight = 1;
    std::size_t pixelsPerCell = 1;

    std::size_t numCells() const { return columns * rows; }
    // How many times lengths upwards are larger than those across.
    double exaggeration() const { return cellWidth / cellHeight; }
    // Points this far outside are drawn at the border: bounds in headers are rounded.
    double tolerance() const { return cellWidth * 1e-3; }
};

// Divides the ranges into cells so that the longer side of the picture has at most `size` pixels. Where there are fewer
// points than pixels, cells are larger than pixels. Cells from above are square, or as high as a degree of latitude is
// long if x and y are angles; a section that would be very flat is exaggerated by 2, 5, 10 and so on. Flat ranges are
// widened. Throws General "the extent of '%s' cannot be drawn" for ranges that are not finite, or too small for the
// precision of their values.
void divide(Projection& projection, std::size_t size, double numPoints, bool isGeographic,
            const std::string& name);

} // namespace Quillmoran
