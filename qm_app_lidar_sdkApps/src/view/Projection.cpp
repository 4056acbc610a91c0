#include "view/Projection.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <numbers>

namespace Quillmoran {

namespace {

constexpr double narrowest = 1.0 / 8; // the shorter side of a picture, relative to the longer one

void widen(Bounds::Range& range, double length)
{
    const double missing = length - lengthOf(range);
    if (missing > 0)
        range = {range.min - missing / 2, range.max + missing / 2};
}

// 1, 2, 5, 10 and so on: the first that makes a section high enough.
double chooseExaggeration(double width, double height)
{
    constexpr double lowest = 0.2, highest = 1e6;
    double factor = 1;
    for (int step = 0; height * factor < lowest * width && factor < highest; ++step)
        factor *= step % 3 == 1 ? 2.5 : 2;
    return factor;
}

} // namespace

void divide(Projection& projection, std::size_t size, double numPoints, bool isGeographic,
            const std::string& name)
{
    Bounds::Range &across = projection.across, &up = projection.up;
    const bool isSection = projection.view == View::Section;
    const double width = lengthOf(across), height = lengthOf(up);
    const double largest =
        std::max({std::abs(across.min), std::abs(across.max), std::abs(up.min), std::abs(up.max)});
    constexpr double mostDistant = 1e100; // squares of distances are finite
    if (!(width >= 0) || !(height >= 0) || !(largest < mostDistant))
        QM_THROW(ErrorCode::General, "the extent of '%s' cannot be drawn", name.c_str());
    if (width == 0 && height == 0)
        widen(across, 1);
    double exaggeration = 1;
    if (isSection && height > 0)
        exaggeration = chooseExaggeration(lengthOf(across), height);
    else if (!isSection && isGeographic)
        exaggeration = 1 / std::max(std::cos((up.min + up.max) / 2 * std::numbers::pi / 180), 0.05);
    const double side = std::max(lengthOf(across), lengthOf(up) * exaggeration);
    widen(across, side * narrowest);
    widen(up, side * narrowest / exaggeration);

    const double numPixels = static_cast<double>(size) * static_cast<double>(size) *
                             (lengthOf(across) / side) * (lengthOf(up) * exaggeration / side);
    constexpr double pointsPerCell = 0.5;
    constexpr std::size_t largestCell = 12; // pixels
    const double sparse = std::round(std::sqrt(numPixels * pointsPerCell / std::max(numPoints, 1.0)));
    const std::size_t most = isSection ? 1 : std::clamp<std::size_t>(size / 32, 1, largestCell);
    projection.pixelsPerCell = static_cast<std::size_t>(std::clamp(sparse, 1.0, static_cast<double>(most)));

    const std::size_t numCells = size / projection.pixelsPerCell;
    projection.cellWidth = side / static_cast<double>(numCells);
    projection.cellHeight = projection.cellWidth / exaggeration;
    // Far from the origin, cells can be smaller than the steps between numbers.
    constexpr double precision = 1e-14;
    if (projection.cellHeight < largest * precision || !(projection.cellHeight > 0))
        QM_THROW(ErrorCode::General, "the extent of '%s' cannot be drawn", name.c_str());
    const auto countOf = [numCells](double length, double cell) {
        constexpr double rounding = 1e-3;
        return std::clamp<std::size_t>(static_cast<std::size_t>(std::ceil(length / cell - rounding)), 1,
                                       numCells);
    };
    projection.columns = countOf(lengthOf(across), projection.cellWidth);
    projection.rows = countOf(lengthOf(up), projection.cellHeight);
}

} // namespace Quillmoran
