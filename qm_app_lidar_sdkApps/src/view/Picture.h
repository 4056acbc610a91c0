// A picture of a point cloud: its plan, its cells and their colours.
#pragma once

#include "view/CellReader.h"
#include "view/Shading.h"
#include "view/ViewOptions.h"

#include <cstdint>
#include <string>

namespace Quillmoran {

// Points that can be drawn.
struct ViewedPoints
{
    const PointSource* source;   // that is drawn
    std::string name;            // in messages
    bool hasLevels = false;      // whether a part of the points is read in a part of the time
    bool isGeographic = false;   // x and y are angles
    double overviewFraction = 0; // of the overview of a tile set; 0 if there is none
};

struct Picture
{
    Projection projection;
    Quantity quantity;
    Shading shading;
    double fraction = 1;          // of the points in the picture that were read
    std::uint64_t numShown = 0;   // points
    std::uint64_t numOutside = 0; // points outside of the bounds that the source claims
    std::uint64_t numWithoutValue = 0;
    Cells cells{0, 0}; // gaps are filled

    // Of the points, without a legend.
    std::size_t width() const { return projection.columns * projection.pixelsPerCell; }
    std::size_t height() const { return projection.rows * projection.pixelsPerCell; }
};

// Reads the coarsest level that fills the picture. Throws General if there are no points to draw, or if their extent
// cannot be drawn, InvalidArgument for an unknown channel, and the errors of the source. The delegate may be null.
Picture makePicture(const ViewedPoints& points, const ViewOptions& options, ProgressDelegate* delegate);

} // namespace Quillmoran
