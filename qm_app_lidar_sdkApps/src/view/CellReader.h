// Reads the points of a picture into cells.
#pragma once

#include "view/Cells.h"
#include "view/Projection.h"
#include "view/Quantity.h"
#include <vxunpack/PointSource.h>

#include <cstdint>

namespace Quillmoran {

struct CellQuery
{
    Bounds box = Bounds::Huge(); // points outside are not drawn
    double fraction = 1;         // of the points, as for PointSource::createIterator()
    bool usesBoxes = false;      // whether a part of the points is read in a part of the time
    const char* activity = "";   // of the progress; a literal
};

struct CellPoints
{
    explicit CellPoints(const Projection& projection) : cells(projection.columns, projection.rows) {}

    Cells cells;
    std::uint64_t numRead = 0;  // of the query
    std::uint64_t numShown = 0; // in the picture
    std::uint64_t numWithoutValue = 0;
    std::uint16_t allColors = 0; // the bits that any sample of a colour has
    double firstColor = 0;       // packed
    bool hasOneColor = true;     // that all points share, as in files that do not use colours
    Bounds::Range across, up;    // of the points that were read; of a section, `up` of those in the picture
};

// The points on all threads, the cells on the calling one. Throws the errors of the source, and Cancelled if the
// delegate, which may be null, asks to stop.
CellPoints readCells(const PointSource& source, const Projection& projection, const Quantity& quantity,
                     const CellQuery& query, ProgressDelegate* delegate);

// The box around the points of a section; Bounds::Huge() from above.
Bounds boxOf(const Projection& projection);

} // namespace Quillmoran
