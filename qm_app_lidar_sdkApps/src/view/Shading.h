// From the values of cells to the colours of pixels.
#pragma once

#include "view/CellReader.h"
#include "view/ColorRamp.h"
#include "view/Image.h"

#include <vector>

namespace Quillmoran {

// The colours of a picture, and what its legend says about them.
struct Shading
{
    Quantity::Kind kind = Quantity::Elevation;
    ColorRamp ramp = ColorRamp::terrain();
    Bounds::Range range;           // of the values at the ends of the ramp
    std::vector<unsigned> numbers; // that occur, in order, of nominal quantities
    unsigned bits = 16;            // of the samples of colours
};

// The ends of a ramp are the values that 2 % of the cells are below and above. Call it before gaps are filled.
Shading chooseShading(const Quantity& quantity, const CellPoints& points);

// Replaces the values by points per square unit, in a square around each cell that has enough points on average.
// `fraction` is that of the points that were read. Call it after gaps were filled.
void computeDensity(Cells& cells, const Projection& projection, double fraction);

// Draws all cells that have a value, with the corner of the first one at a pixel of the image, which has room for all.
// Uses all threads.
void drawCells(const Cells& cells, const Projection& projection, const Shading& shading, Image& image,
               std::size_t left, std::size_t top);

} // namespace Quillmoran
