// What the colours of a picture stand for: the value of the option "by".
#pragma once

#include <vxunpack/PointInfo.h>

#include <string>
#include <vector>

namespace Quillmoran {

struct Quantity
{
    enum Kind
    {
        Colors,    // the points' own red, green and blue
        Elevation, // by a ramp, from above with shades of hills
        Hillshade, // shades only
        Intensity,
        Class,
        Return,
        Density,
        Time,
        Channel // any other channel by a ramp
    };

    Kind kind = Elevation;
    std::vector<std::string> channels; // that are read besides X, Y and Z

    // Whether values are names of something and have no order.
    bool isNominal() const { return kind == Class || kind == Return; }

    // The words that name kinds.
    static std::vector<const char*> listNames();
    // From a word or the name of a channel in any notation. Throws InvalidArgument, with a list of the channels,
    // if the points do not have it. `file` names the points.
    static Quantity parse(const std::string& text, const PointInfo& layout, const std::string& file);
    // Colours if the points have them, else the elevation.
    static Quantity choose(const PointInfo& layout);
};

} // namespace Quillmoran
