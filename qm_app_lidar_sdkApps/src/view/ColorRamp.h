// The colours of quantities and of classes.
#pragma once

#include "view/Image.h"

#include <cstdint>
#include <vector>

namespace Quillmoran {

// Colours between two ends. A value type; const functions may be called from any thread.
class ColorRamp
{
public:
    // Blue, green and yellow of steadily growing lightness, for any quantity.
    static ColorRamp spectral();
    // Greens, browns and white, for elevations.
    static ColorRamp terrain();
    // Black to white.
    static ColorRamp gray();

    // The colour of a position between 0 and 1; of the nearer end beyond them.
    Color at(double position) const noexcept
    {
        const double last = static_cast<double>(m_colors.size() - 1);
        const double scaled = position * last + 0.5;
        return m_colors[static_cast<std::size_t>(scaled > 0 ? scaled < last ? scaled : last : 0)];
    }

private:
    static constexpr std::size_t numColors = 256;

    std::vector<Color> m_colors;
};

// A colour of the OKLab space (Ottosson, "A perceptual color space for image processing", 2020): lightness 0 to 1,
// chroma, hue in degrees. Colours that sRGB does not have are clipped.
Color fromLightnessChromaHue(double lightness, double chroma, double hue) noexcept;

// Ground is brown, vegetation green, buildings red, water blue and so on. Classes without a usual colour get one that
// differs from those of the numbers next to them.
Color colorOfClass(unsigned code) noexcept;
// For small numbers, as those of returns.
Color colorOfNumber(unsigned number) noexcept;

} // namespace Quillmoran
