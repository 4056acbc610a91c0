#include "view/Projection.h"

#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

namespace {

constexpr double narrowest = 1.0 / 8; // the shorter side of a picture, relative to the longer one

double lengthOf(const Bounds::Range& range)
{
    return range.max - range.min;
}

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

void divide(Projection& projection, std::size_t size, double numPoints, const std::string& name)
{
    Bounds::Range &across = projection.across, &up = projection.up;
    const bool isSection = projection.view == View::Section;
    const double width = lengthOf(across), height = lengthOf(up);
    // Far from the origin, the cells of a small range would be smaller than the steps between numbers.
    const double largest =
        std::max({std::abs(across.min), std::abs(across.max), std::abs(up.min), std::abs(up.max)});
    constexpr double steps = 1e-12;
    if (!(width >= 0) || !(height >= 0) || !std::isfinite(largest) || largest > 1e100)
        QM_THROW(ErrorCode::General, "the extent of '%s' cannot be drawn", name.c_str());
    const double smallest = std::max(largest * steps, 1e-9) * static_cast<double>(size);
    if (width == 0 && height == 0)
        widen(across, std::max(1.0, smallest));
    const double exaggeration = isSection && height > 0 ? chooseExaggeration(lengthOf(across), height) : 1;
    const double side = std::max({lengthOf(across), lengthOf(up) * exaggeration, smallest});
    widen(across, side * narrowest);
    widen(up, side * narrowest / exaggeration);
    // Bounds in a header can differ from those of the points in their last digit.
    constexpr double lastDigit = 1e-9;
    widen(across, lengthOf(across) + side * lastDigit);
    widen(up, lengthOf(up) + side / exaggeration * lastDigit);

    const double pixel = side / static_cast<double>(size);
    const auto countOf = [](double length, double cell) {
        return std::max<std::size_t>(1, static_cast<std::size_t>(std::ceil(length / cell - 1e-3)));
    };
    const double numPixels = lengthOf(across) / pixel * (lengthOf(up) * exaggeration / pixel);
    constexpr double pointsPerCell = 0.5;
    constexpr std::size_t largestCell = 12; // pixels
    const double sparse = std::sqrt(numPixels * pointsPerCell / std::max(numPoints, 1.0));
    const auto most = isSection ? 1 : std::clamp<std::size_t>(size / 32, 1, largestCell);
    projection.pixelsPerCell =
        static_cast<std::size_t>(std::clamp(std::round(sparse), 1.0, static_cast<double>(most)));

    projection.cellWidth = pixel * static_cast<double>(projection.pixelsPerCell);
    projection.cellHeight = projection.cellWidth / exaggeration;
    projection.columns = countOf(lengthOf(across), projection.cellWidth);
    projection.rows = countOf(lengthOf(up), projection.cellHeight);
}

} // namespace Quillmoran
