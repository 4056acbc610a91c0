// The legend beside a picture: what its colours mean, its scale and its extent.
#pragma once

#include "view/CoordinateSystemName.h"
#include "view/Picture.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

struct LegendText
{
    std::string title;
    CoordinateSystemName system;
    std::optional<std::uint64_t> numPoints; // of the source
    std::vector<std::string> classNames;    // by code

    // What a source says of itself. Reads no points.
    static LegendText describe(const PointSource& source, const std::string& title);
};

// Draws the points of a picture.
Image drawPicture(const Picture& picture, Color background);
// The same with a legend on the right, and with axes if it is a section. Text is dark on light backgrounds and light on
// dark ones.
Image drawPicture(const Picture& picture, Color background, const LegendText& legend);

} // namespace Quillmoran
