#include "view/ColorRamp.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

namespace Quillmoran {

namespace {

std::uint8_t toByte(double linear)
{
    const double clipped = std::clamp(linear, 0.0, 1.0);
    const double encoded =
        clipped <= 0.0031308 ? 12.92 * clipped : 1.055 * std::pow(clipped, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(encoded * 255));
}

struct Stop
{
    double position, lightness, chroma, hue;
};

template <std::size_t numStops>
std::vector<Color> interpolate(const Stop (&stops)[numStops], std::size_t numColors)
{
    std::vector<Color> colors;
    for (std::size_t i = 0; i < numColors; ++i) {
        const double position = static_cast<double>(i) / static_cast<double>(numColors - 1);
        const Stop* next = stops + 1;
        while (next + 1 != std::end(stops) && next->position < position)
            ++next;
        const Stop& before = next[-1];
        const double part = (position - before.position) / (next->position - before.position);
        const auto mix = [part](double a, double b) { return a + (b - a) * part; };
        colors.push_back(fromLightnessChromaHue(mix(before.lightness, next->lightness),
                                                mix(before.chroma, next->chroma),
                                                mix(before.hue, next->hue)));
    }
    return colors;
}

// Indexed by the code of the class.
constexpr Color classColors[] = {
    {120, 120, 120}, // never classified
    {160, 160, 160}, // unclassified
    {165, 115, 65},  // ground
    {165, 215, 100}, // low vegetation
    {85, 175, 70},   // medium vegetation
    {20, 115, 45},   // high vegetation
    {225, 85, 45},   // building
    {215, 40, 160},  // low noise
    {245, 200, 60},  // model key-point
    {55, 130, 215},  // water
    {110, 75, 125},  // rail
    {80, 80, 90},    // road surface
    {225, 205, 175}, // overlap
    {250, 225, 110}, // wire - guard
    {250, 175, 40},  // wire - conductor
    {150, 60, 30},   // transmission tower
    {205, 140, 20},  // wire - connector
    {150, 140, 175}, // bridge deck
    {240, 70, 200},  // high noise
};

} // namespace

Color fromLightnessChromaHue(double lightness, double chroma, double hue) noexcept
{
    const double angle = hue * std::numbers::pi / 180;
    const double a = chroma * std::cos(angle), b = chroma * std::sin(angle);
    const auto cube = [](double value) { return value * value * value; };
    const double l = cube(lightness + 0.3963377774 * a + 0.2158037573 * b);
    const double m = cube(lightness - 0.1055613458 * a - 0.0638541728 * b);
    const double s = cube(lightness - 0.0894841775 * a - 1.2914855480 * b);
    return {toByte(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
            toByte(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
            toByte(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

ColorRamp ColorRamp::spectral()
{
    static constexpr Stop stops[] = {{0, 0.28, 0.13, 285}, {0.5, 0.60, 0.11, 195}, {1, 0.92, 0.17, 105}};
    ColorRamp ramp;
    ramp.m_colors = interpolate(stops, numColors);
    return ramp;
}

ColorRamp ColorRamp::terrain()
{
    static constexpr Stop stops[] = {{0, 0.50, 0.09, 160},   {0.25, 0.68, 0.11, 135}, {0.5, 0.85, 0.10, 100},
                                     {0.75, 0.66, 0.10, 62}, {0.9, 0.72, 0.04, 50},   {1, 0.93, 0.015, 50}};
    ColorRamp ramp;
    ramp.m_colors = interpolate(stops, numColors);
    return ramp;
}

ColorRamp ColorRamp::gray()
{
    ColorRamp ramp;
    for (std::size_t i = 0; i < numColors; ++i) {
        const auto level = static_cast<std::uint8_t>(i);
        ramp.m_colors.push_back({level, level, level});
    }
    return ramp;
}

Color colorOfClass(unsigned code) noexcept
{
    return code < std::size(classColors) ? classColors[code] : colorOfNumber(code);
}

Color colorOfNumber(unsigned number) noexcept
{
    constexpr double goldenAngle = 137.50776405; // no two hues of a few numbers are near each other
    return fromLightnessChromaHue(number % 2 == 0 ? 0.72 : 0.58, 0.14, 112.5 + number * goldenAngle);
}

} // namespace Quillmoran
