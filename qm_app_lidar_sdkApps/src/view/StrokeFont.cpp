#include "view/StrokeFont.h"

#include "text/UTF8.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

// A glyph is a list of strokes, which are lists of points: a letter for x, from A, and a hexadecimal digit
// for y, upwards. Small letters are control points of quadratic curves, with a point of the curve in the
// middle between two of them.
constexpr double lineUnits = 16; // the height of a line
constexpr double baselineY = 4, lowerCaseY = 12, capitalY = 15;
constexpr double gapUnits = 3;

constexpr const char* asciiGlyphs[] = {
    "",                                       // space
    "AfA8 A4A4",                              // !
    "AfAc CfCc",                              // "
    "CfB4 GfF4 AbHb A8H8",                    // #
    "GcgeDeaeaaDagag5D5a5A6 DfD3",            // $
    "CfafabCbebefCf H8f8f4H4j4j8H8 IfB4",     // %
    "H4BbafDfffFdfbC9a8A6a4D4g4H9",           // &
    "AfAc",                                   // '
    "Cfaba5C1",                               // (
    "Afcbc5A1",                               // )
    "CfC9 AdEb EdAb",                         // *
    "DbD5 A8G8",                              // +
    "B5B4A2",                                 // ,
    "A8E8",                                   // -
    "A4B4B5A5A4",                             // .
    "FfA2",                                   // /
    "D4g4gfDfafa4D4",                         // 0
    "AdDfD4 A4G4",                            // 1
    "AcafDfgfGcg9A4G4",                       // 2
    "AdafDfgfgaCagag4D4a4A6",                 // 3
    "E4EfA7G7",                               // 4
    "FfBfAabbDbgbg4D4b4A5",                   // 5
    "FfafA8a4D4g4G7gaDaaaA7",                 // 6
    "AfGfC4",                                 // 7
    "DfbfbaDafaffDf Daaaa4D4g4gaDa",          // 8
    "B4g4GbgfDfafAca9D9g9Gc",                 // 9
    "A4B4B5A5A4 AaBaBbAbAa",                  // :
    "B5B4A2 AaBaBbAbAa",                      // ;
    "GcA8G4",                                 // <
    "AaGa A6G6",                              // =
    "AcG8A4",                                 // >
    "AcafCfffFcfaC9C7 C4C4",                  // ?
    "I4h3F3a3aeFekeK9k6J6h6H8hbFbdbd6F6h6H8", // @
    "A4EfI4 B7H7",                            // A
    "A4AfDfgfgaDaAa DaEahah4E4A4",            // B
    "HdhfEfafa4E4h4H6",                       // C
    "A4AfCfifi4C4A4",                         // D
    "GfAfA4G4 AaFa",                          // E
    "GfAfA4 AaFa",                            // F
    "HdhfEfafa4E4h4H6H9E9",                   // G
    "AfA4 HfH4 AaHa",                         // H
    "AfEf CfC4 A4E4",                         // I
    "FfF7f4C4a4A6",                           // J
    "AfA4 HfA8 DbH4",                         // K
    "AfA4G4",                                 // L
    "A4AfE8IfI4",                             // M
    "A4AfH4Hf",                               // N
    "E4i4ifEfafa4E4",                         // O
    "A4AfEfhfh9E9A9",                         // P
    "E4i4ifEfafa4E4 F7I3",                    // Q
    "A4AfEfhfh9E9A9 E9H4",                    // R
    "GdgfDfafaaDagag4D4a4A6",                 // S
    "AfIf EfE4",                              // T
    "AfA9a4E4i4I9If",                         // U
    "AfE4If",                                 // V
    "AfD4FdH4Kf",                             // W
    "AfH4 HfA4",                              // X
    "AfE9If E9E4",                            // Y
    "AfHfA4H4",                               // Z
    "CfAfA1C1",                               // [
    "AfF2",                                   // backslash
    "AfCfC1A1",                               // ]
    "AbDfGb",                                 // ^
    "A2H2",                                   // _
    "AfCd",                                   // `
    "AbbcDcfcF9F4 F9C9a9a4C4f4F7",            // a
    "AfA4 A9acDcgcg4D4a4A7",                  // b
    "FafcDcaca4D4f4F6",                       // c
    "GfG4 G9gcDcaca4D4g4G7",                  // d
    "A8G8gcDcaca4D4F4",                       // e
    "EfcfCcC4 AcEc",                          // f
    "G9gcDcaca4D4g4G7 GcG3g0D0a0A2",          // g
    "AfA4 A9acDcgcG9G4",                      // h
    "AcA4 AfAf",                              // i
    "CcC2c0A0 CfCf",                          // j
    "AfA4 FcA7 C9F4",                         // k
    "AfA6a4C4",                               // l
    "AcA4 A9acCcecE9E4 E9ecGcicI9I4",         // m
    "AcA4 A9acDcgcG9G4",                      // n
    "Dcaca4D4g4gcDc",                         // o
    "AcA0 A9acDcgcg4D4a4A7",                  // p
    "GcG0 G9gcDcaca4D4g4G7",                  // q
    "AcA4 A9acEc",                            // r
    "FbfcDcaca8D8f8f4C4a4A5",                 // s
    "BfB6b4D4E4 AcEc",                        // t
    "AcA7a4D4g4G7 GcG4",                      // u
    "AcD4Gc",                                 // v
    "AcC4EbG4Ic",                             // w
    "AcG4 GcA4",                              // x
    "AcD4 GcD4C1b0A0",                        // y
    "AcFcA4F4",                               // z
    "DfbfBcb8A8b8B4b1D1",                     // {
    "AfA0",                                   // |
    "AfcfCcc8D8c8C4c1A1",                     // }
    "A7bbD8f5G9",                             // ~
};
static_assert(std::size(asciiGlyphs) == '~' - ' ' + 1);

constexpr std::pair<std::uint32_t, const char*> otherGlyphs[] = {
    {0xB0, "CfafabCbebefCf"},       // degree
    {0xB1, "DcD6 A9G9 A4G4"},       // plus-minus
    {0xB2, "AdafCfefEdecA9E9"},     // superscript two
    {0xB3, "AfEfCcEcE9A9"},         // superscript three
    {0xB5, "AcA0 A7a4D4g4G7 GcG4"}, // micro
    {0xD7, "AbG5 GbA5"},            // times
    {0x2013, "A8G8"},               // en dash
    {0x2212, "A8G8"},               // minus
};
constexpr const char* box = "A4AfHfH4A4";

struct Point
{
    double x = 0;
    double y = 0; // downwards
};

Point middle(Point a, Point b)
{
    return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

struct Segment
{
    Point begin, end;

    double squaredDistance(Point point) const noexcept
    {
        const double dx = end.x - begin.x, dy = end.y - begin.y;
        const double px = point.x - begin.x, py = point.y - begin.y;
        const double length = dx * dx + dy * dy;
        const double at = length > 0 ? std::clamp((px * dx + py * dy) / length, 0.0, 1.0) : 0;
        const double ex = px - at * dx, ey = py - at * dy;
        return ex * ex + ey * ey;
    }
};

const char* glyphOf(std::uint32_t code)
{
    if (code >= ' ' && code <= '~')
        return asciiGlyphs[code - ' '];
    const auto* found = std::find_if(std::begin(otherGlyphs), std::end(otherGlyphs),
                                     [code](const auto& glyph) { return glyph.first == code; });
    return found == std::end(otherGlyphs) ? box : found->second;
}

bool isControl(char letter)
{
    return letter >= 'a';
}

double unitsOf(char letter)
{
    return letter - (isControl(letter) ? 'a' : 'A');
}

// Sizes in pixels. Stems and the lines of letters are moved to the middle of pixels, which keeps them sharp.
class Metrics
{
public:
    explicit Metrics(double height)
        : m_height(height > 0 ? std::min(height, 16384.0) : 0), m_unit(m_height / lineUnits)
    {}

    double strokeWidth() const noexcept { return std::max(m_height / 10, 1.0); }
    double gap() const noexcept { return std::max(std::round(gapUnits * m_unit), 2.0); }
    double width(double units) const noexcept { return std::round(units * m_unit); }
    // Whole pixels above the baseline.
    double level(double y) const noexcept
    {
        const double lowerCase = std::round((lowerCaseY - baselineY) * m_unit);
        const double capital = std::max(std::round((capitalY - baselineY) * m_unit), lowerCase);
        if (y <= baselineY)
            return std::round((y - baselineY) * m_unit);
        if (y <= lowerCaseY)
            return std::round((y - baselineY) / (lowerCaseY - baselineY) * lowerCase);
        return std::round(lowerCase + (y - lowerCaseY) / (capitalY - lowerCaseY) * (capital - lowerCase));
    }
    int curveSteps() const noexcept { return 4 + static_cast<int>(std::min(m_height / 16, 60.0)); }
    bool isEmpty() const noexcept { return m_height == 0; }

private:
    double m_height;
    double m_unit;
};

// The extent of a glyph in units.
double glyphUnits(const char* glyph)
{
    constexpr double space = 3;
    double width = *glyph == '\0' ? space : 0;
    for (; *glyph != '\0'; glyph += *glyph == ' ' ? 1 : 2)
        if (*glyph != ' ')
            width = std::max(width, unitsOf(*glyph));
    return width;
}

double advance(const char* glyph, const Metrics& metrics)
{
    return metrics.width(glyphUnits(glyph)) + metrics.gap();
}

// The segments of a glyph whose stem is at the origin.
std::vector<Segment> layOut(const char* glyph, Point origin, const Metrics& metrics)
{
    std::vector<Segment> segments;
    const double units = glyphUnits(glyph);
    const double unit = units > 0 ? metrics.width(units) / units : 0;
    Point from;
    std::optional<Point> control;
    bool isFirst = true;
    const auto curveTo = [&](Point to) {
        const int steps = control ? metrics.curveSteps() : 1;
        const Point begin = from, bend = control ? *control : from;
        for (int i = 1; i <= steps; ++i) {
            const double t = static_cast<double>(i) / steps, s = 1 - t;
            const Point next = control ? Point{s * s * begin.x + 2 * s * t * bend.x + t * t * to.x,
                                               s * s * begin.y + 2 * s * t * bend.y + t * t * to.y}
                                       : to;
            segments.push_back({from, next});
            from = next;
        }
        control.reset();
    };
    while (*glyph != '\0') {
        if (*glyph == ' ') {
            isFirst = true;
            ++glyph;
            continue;
        }
        const double y = glyph[1] <= '9' ? glyph[1] - '0' : glyph[1] - 'a' + 10;
        const Point point = {origin.x + unitsOf(*glyph) * unit, origin.y - metrics.level(y)};
        if (std::exchange(isFirst, false)) {
            from = point;
        } else if (isControl(*glyph)) {
            if (control)
                curveTo(middle(*control, point));
            control = point;
        } else {
            curveTo(point);
        }
        glyph += 2;
    }
    return segments;
}

void blend(Color& pixel, Color color, double coverage)
{
    const double alpha = coverage * color.alpha / 255;
    const double below = (1 - alpha) * pixel.alpha / 255;
    const double total = alpha + below;
    if (total <= 0)
        return;
    const auto mix = [&](std::uint8_t above, std::uint8_t under) {
        return static_cast<std::uint8_t>(std::lround((above * alpha + under * below) / total));
    };
    pixel = {mix(color.red, pixel.red), mix(color.green, pixel.green), mix(color.blue, pixel.blue),
             static_cast<std::uint8_t>(std::lround(total * 255))};
}

// The part of a pixel that a stroke covers, by the distance from its centre.
double coverageAt(double squaredDistance, double width)
{
    return std::clamp(width / 2 + 0.5 - std::sqrt(squaredDistance), 0.0, 1.0) * std::min(width, 1.0);
}

// The pixels whose centres are in a range, among `count`.
std::pair<std::size_t, std::size_t> pixelsIn(double low, double high, std::size_t count)
{
    const double limit = static_cast<double>(count);
    return {static_cast<std::size_t>(std::clamp(std::ceil(low - 0.5), 0.0, limit)),
            static_cast<std::size_t>(std::clamp(std::floor(high + 0.5), 0.0, limit))};
}

Point centreOf(std::size_t x, std::size_t y)
{
    return {static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5};
}

// Strokes that meet are drawn together, so that no pixel is drawn twice.
void drawTogether(Image& image, const std::vector<Segment>& segments, double width, Color color)
{
    if (segments.empty())
        return;
    Point low = segments[0].begin, high = low;
    for (const Segment& segment : segments)
        for (const Point point : {segment.begin, segment.end}) {
            low = {std::min(low.x, point.x), std::min(low.y, point.y)};
            high = {std::max(high.x, point.x), std::max(high.y, point.y)};
        }
    const double reach = width / 2 + 0.5;
    const auto [left, right] = pixelsIn(low.x - reach, high.x + reach, image.width());
    const auto [top, bottom] = pixelsIn(low.y - reach, high.y + reach, image.height());
    for (std::size_t y = top; y < bottom; ++y)
        for (std::size_t x = left; x < right; ++x) {
            double nearest = reach * reach;
            for (const Segment& segment : segments)
                nearest = std::min(nearest, segment.squaredDistance(centreOf(x, y)));
            blend(image.row(y)[x], color, coverageAt(nearest, width));
        }
}

// Keeps the part of a segment where low <= begin + t * extent <= high.
void clip(std::pair<double, double>& part, double begin, double extent, double low, double high)
{
    if (extent == 0) {
        if (begin < low || begin > high)
            part = {1, 0};
        return;
    }
    const double a = (low - begin) / extent, b = (high - begin) / extent;
    part = {std::max(part.first, std::min(a, b)), std::min(part.second, std::max(a, b))};
}

} // namespace

std::size_t textWidth(std::string_view utf8, double height)
{
    const Metrics metrics(height);
    double width = 0;
    while (!utf8.empty() && !metrics.isEmpty()) {
        const Character character = firstCharacter(utf8);
        width += advance(glyphOf(character.code), metrics);
        utf8.remove_prefix(std::max<std::size_t>(character.size, 1));
    }
    return static_cast<std::size_t>(width);
}

void drawText(Image& image, double x, double baseline, std::string_view utf8, double height, Color color)
{
    const Metrics metrics(height);
    if (metrics.isEmpty() || !std::isfinite(x) || !std::isfinite(baseline))
        return;
    const double width = metrics.strokeWidth();
    Point pen = {std::round(x) + std::floor(metrics.gap() / 2) + 0.5,
                 std::round(baseline) - std::floor(width / 2) - 0.5};
    while (!utf8.empty()) {
        const Character character = firstCharacter(utf8);
        const char* glyph = glyphOf(character.code);
        drawTogether(image, layOut(glyph, pen, metrics), width, color);
        pen.x += advance(glyph, metrics);
        utf8.remove_prefix(std::max<std::size_t>(character.size, 1));
    }
}

void drawLine(Image& image, double x0, double y0, double x1, double y1, double width, Color color)
{
    if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1) || !(width > 0))
        return;
    for (double* coordinate : {&x0, &y0, &x1, &y1}) {
        constexpr double farthest = 1e9; // that leaves enough precision for what is on the image
        *coordinate = std::clamp(*coordinate, -farthest, farthest);
    }
    const double dx = x1 - x0, dy = y1 - y0;
    // The part near the image.
    const auto imageWidth = static_cast<double>(image.width()),
               imageHeight = static_cast<double>(image.height());
    width = std::min(width, 2 * (imageWidth + imageHeight));
    std::pair<double, double> part(0, 1);
    clip(part, x0, dx, -width - 1, imageWidth + width + 1);
    clip(part, y0, dy, -width - 1, imageHeight + width + 1);
    if (part.first > part.second)
        return;
    const Segment line = {{x0 + part.first * dx, y0 + part.first * dy},
                          {x0 + part.second * dx, y0 + part.second * dy}};
    const double reach = width / 2 + 0.5;
    const auto [lowY, highY] = std::minmax(line.begin.y, line.end.y);
    const auto [top, bottom] = pixelsIn(lowY - reach, highY + reach, image.height());
    for (std::size_t y = top; y < bottom; ++y) {
        // The part of the line that reaches this row.
        std::pair<double, double> near(0, 1);
        const double centre = static_cast<double>(y) + 0.5;
        clip(near, line.begin.y, line.end.y - line.begin.y, centre - reach, centre + reach);
        if (near.first > near.second)
            continue;
        const double extent = line.end.x - line.begin.x;
        const auto [lowX, highX] =
            std::minmax({line.begin.x + near.first * extent, line.begin.x + near.second * extent});
        const auto [left, right] = pixelsIn(lowX - reach, highX + reach, image.width());
        for (std::size_t x = left; x < right; ++x)
            blend(image.row(y)[x], color, coverageAt(line.squaredDistance(centreOf(x, y)), width));
    }
}

} // namespace Quillmoran
