#include "view/Legend.h"

#include "model/ChannelNames.h"
#include "text/Printable.h"
#include "utils/program/ClassNames.h"
#include "view/StrokeFont.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>

namespace Quillmoran {

namespace {

constexpr char times[] = " \u00d7 ";
constexpr std::int64_t gpsEpoch = 315964800;      // 1980-01-06 in seconds since 1970
constexpr double adjustedTimeOffset = 1000000000; // seconds, by which LAS keeps the numbers small

// The smallest of 1, 2, 5, 10 and so on that is not less.
double roundUp(double value)
{
    const double power = std::pow(10, std::floor(std::log10(value)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= value * (1 - 1e-9))
            return factor * power;
    return 10 * power;
}

int decimalsOf(double step)
{
    return std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 9);
}

// "636,001.76"
std::string formatNumber(double value, int decimals)
{
    constexpr double largest = 1e15; // of a legible number
    char text[64];
    if (!(std::abs(value) < largest)) {
        std::snprintf(text, sizeof text, "%.6g", value);
        return text;
    }
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string number = text;
    const std::size_t first = number[0] == '-' ? 1 : 0;
    for (std::size_t i = std::min(number.find('.'), number.size()); i > first + 3;)
        number.insert(i -= 3, ",");
    return number;
}

std::string formatCount(std::uint64_t count)
{
    return formatNumber(static_cast<double>(count), 0);
}

std::string withUnit(const std::string& text, const std::string& unit)
{
    return unit.empty() ? text : unit == "\u00b0" ? text + unit : text + ' ' + unit;
}

struct Tick
{
    double value;
    std::string label;
};

std::vector<Tick> chooseTicks(const Bounds::Range& range, double most)
{
    const double length = range.max - range.min;
    if (!(length > 0) || !std::isfinite(length))
        return {{range.min, formatNumber(range.min, range.min == std::round(range.min) ? 0 : 2)}};
    const double step = roundUp(length / std::max(most, 1.0));
    std::vector<Tick> ticks;
    constexpr double inside = 1e-6; // of a step
    const double first = std::ceil(range.min / step - inside);
    for (int i = 0; i <= most + 1; ++i) {
        const double value = (first + i) * step;
        if (value <= range.max + inside * step)
            ticks.push_back({value, formatNumber(value + 0.0, decimalsOf(step))});
    }
    return ticks;
}

// Seconds of adjusted standard time; empty for times far from today.
std::string formatTime(double seconds, const char* format)
{
    constexpr double centuries = 1e10;
    if (!(std::abs(seconds) < centuries))
        return {};
    const auto time = static_cast<std::time_t>(std::floor(seconds + adjustedTimeOffset)) + gpsEpoch;
    std::tm date = {};
    char text[32] = "";
    if (!gmtime_r(&time, &date) || std::strftime(text, sizeof text, format, &date) == 0)
        return {};
    return text;
}

// A box whose corner is a whole pixel of the image.
void fillRows(Image& image, double left, double top, double width, double height, Color color)
{
    for (std::size_t row = 0; row < static_cast<std::size_t>(height); ++row)
        std::ranges::fill(image.row(static_cast<std::size_t>(top) + row)
                              .subspan(static_cast<std::size_t>(left), static_cast<std::size_t>(width)),
                          color);
}

class LegendDrawing
{
public:
    LegendDrawing(const Picture& picture, const LegendText& text, Color background);

    Image draw();

private:
    // A part of the legend; parts are below each other.
    struct Part
    {
        double height;
        std::function<void(Image& image, double x, double y)> draw;
    };

    bool isSection() const { return m_picture.projection.view == View::Section; }
    void addText(const std::string& text, double indent = 0);
    void addWrapped(const std::string& text);
    void addGap() { m_parts.push_back({m_height * 0.6, {}}); }
    void addRamp(const std::string& title, const std::vector<Tick>& ticks);
    void addSwatch(Color color, const std::string& label);
    void addColors();
    void addTimes();
    void addScaleBar();
    void addExtent();
    void addPoints();
    void drawAxes(Image& image, double left, double top) const;

    std::string fit(std::string text, double width) const;
    // Distance of the line of letters from the top of a line.
    double baseline() const { return std::round(m_height * 0.8); }

    const Picture& m_picture;
    const LegendText& m_text;
    const Color m_background;
    Color m_ink;
    double m_height;  // of a line, in pixels
    double m_columns; // width of the legend in pixels
    std::vector<Part> m_parts;
};

LegendDrawing::LegendDrawing(const Picture& picture, const LegendText& text, Color background)
    : m_picture(picture), m_text(text), m_background(background)
{
    const int brightness = 2 * background.red + 5 * background.green + background.blue;
    constexpr int middle = 8 * 120;
    m_ink = background.alpha == 0 || brightness > middle ? Color{30, 30, 30} : Color{235, 235, 235};
    const auto side = static_cast<double>(std::max(picture.width(), picture.height()));
    constexpr double least = 13, largest = 64, share = 1.0 / 64;
    m_height = std::round(std::clamp(side * share, least, largest));
    m_columns = std::round(m_height * 15);
}

std::string LegendDrawing::fit(std::string text, double width) const
{
    if (static_cast<double>(textWidth(text, m_height)) <= width)
        return text;
    while (!text.empty() && static_cast<double>(textWidth(text + "...", m_height)) > width) {
        while (text.size() > 1 && (text.back() & 0xC0) == 0x80) // of a character of several bytes
            text.pop_back();
        text.pop_back();
    }
    return text + "...";
}

void LegendDrawing::addText(const std::string& text, double indent)
{
    const std::string fitting = fit(text, m_columns - indent);
    m_parts.push_back({m_height * 1.2, [this, fitting, indent](Image& image, double x, double y) {
                           drawText(image, x + indent, y + baseline(), fitting, m_height, m_ink);
                       }});
}

// Breaks after blanks and underscores.
void LegendDrawing::addWrapped(const std::string& text)
{
    constexpr std::size_t maxLines = 3, longest = 200; // bytes
    std::string rest = text.substr(0, longest);
    for (std::size_t line = 1; line<maxLines&& static_cast<double>(textWidth(rest, m_height))> m_columns;
         ++line) {
        std::size_t end = 0;
        for (std::size_t next = 0; (next = rest.find_first_of(" _", next)) != std::string::npos; ++next)
            if (static_cast<double>(textWidth(rest.substr(0, next + 1), m_height)) <= m_columns)
                end = next + 1;
        if (end == 0)
            break;
        addText(rest.substr(0, end));
        rest.erase(0, end);
    }
    addText(rest);
}

void LegendDrawing::addRamp(const std::string& title, const std::vector<Tick>& ticks)
{
    addText(title);
    addGap();
    const double length = std::round(m_height * 10);
    m_parts.push_back({length + m_height, [this, ticks, length](Image& image, double x, double y) {
                           const double width = m_height * 1.4;
                           const Bounds::Range& range = m_picture.shading.range;
                           for (std::size_t line = 0; line < static_cast<std::size_t>(length); ++line)
                               fillRows(
                                   image, x, y + static_cast<double>(line), width, 1,
                                   m_picture.shading.ramp.at(1 - static_cast<double>(line) / (length - 1)));
                           for (const Tick& tick : ticks) {
                               const double span = range.max - range.min;
                               const double position = span > 0 ? (range.max - tick.value) / span : 0.5;
                               const double at = y + std::clamp(position, 0.0, 1.0) * (length - 1) + 0.5;
                               drawLine(image, x + width + 1, at, x + width + m_height * 0.4, at, 1.2, m_ink);
                               drawText(image, x + width + m_height * 0.7, at + m_height * 0.28, tick.label,
                                        m_height, m_ink);
                           }
                       }});
}

void LegendDrawing::addSwatch(Color color, const std::string& label)
{
    const std::string fitting = fit(label, m_columns - m_height * 1.8);
    m_parts.push_back({m_height * 1.3, [this, color, fitting](Image& image, double x, double y) {
                           const double side = m_height * 0.9;
                           fillRows(image, x, y, side * 1.3, std::round(side), color);
                           drawText(image, x + m_height * 1.8, y + baseline(), fitting, m_height, m_ink);
                       }});
}

void LegendDrawing::addTimes()
{
    const Bounds::Range& range = m_picture.shading.range;
    const std::string& channel = m_picture.quantity.channels[0];
    if (channel != ChannelNames::gpsTimeAdjusted || formatTime(range.min, "%F").empty() ||
        formatTime(range.max, "%F").empty()) {
        addRamp(channel + " (s)", chooseTicks(range, 6));
        return;
    }
    const std::string day = formatTime(range.min, "%F");
    const bool isOneDay = day == formatTime(range.max, "%F");
    constexpr int numTicks = 5;
    std::vector<Tick> ticks;
    for (int i = 0; i < numTicks; ++i) {
        const double value = range.min + (range.max - range.min) * i / (numTicks - 1);
        ticks.push_back({value, formatTime(value, isOneDay ? "%T" : "%F")});
    }
    addRamp(isOneDay ? "GPS time, " + day : "GPS time", ticks);
}

void LegendDrawing::addColors()
{
    const Shading& shading = m_picture.shading;
    const std::string& unit = m_text.system.heightUnit;
    const auto ramp = [&](const std::string& title) { addRamp(title, chooseTicks(shading.range, 6)); };
    switch (shading.kind) {
    case Quantity::Colors:
        addText("Colours of the points");
        break;
    case Quantity::Hillshade:
        addText("Hillshade, light from the NW");
        break;
    case Quantity::Elevation:
        ramp(unit.empty() ? "Elevation" : "Elevation (" + unit + ')');
        break;
    case Quantity::Density:
        ramp(m_text.system.unit.empty() ? "Points per square unit"
                                        : "Points / " + m_text.system.unit + "\u00b2");
        break;
    case Quantity::Time:
        addTimes();
        break;
    case Quantity::Class:
    case Quantity::Return:
        addText(shading.kind == Quantity::Class ? "Classes" : "Returns");
        for (const unsigned number : shading.numbers) {
            constexpr std::size_t most = 24;
            if (&number - shading.numbers.data() == most) {
                addText("and " + std::to_string(shading.numbers.size() - most) + " others");
                break;
            }
            std::string label = std::to_string(number);
            if (shading.kind == Quantity::Class && number < m_text.classNames.size())
                label += ' ' + m_text.classNames[number];
            addSwatch(shading.kind == Quantity::Class ? colorOfClass(number) : colorOfNumber(number), label);
        }
        break;
    default:
        ramp(printable(m_picture.quantity.channels[0]));
    }
}

void LegendDrawing::addScaleBar()
{
    const Projection& projection = m_picture.projection;
    const double pixel = projection.cellWidth / static_cast<double>(projection.pixelsPerCell);
    const double room = m_columns * 0.8 * pixel;
    double length = roundUp(room);
    while (length > room)
        length = roundUp(length * 0.3);
    const std::string label = withUnit(formatNumber(length, decimalsOf(length)), m_text.system.unit);
    m_parts.push_back({m_height * 2.2, [this, length, pixel, label](Image& image, double x, double y) {
                           const double end = x + length / pixel, line = y + m_height * 1.7 + 0.5,
                                        tick = m_height * 0.35;
                           drawText(image, x, y + baseline(), label, m_height, m_ink);
                           drawLine(image, x + 1, line, end, line, 2, m_ink);
                           drawLine(image, x + 1, line - tick, x + 1, line, 2, m_ink);
                           drawLine(image, end, line - tick, end, line, 2, m_ink);
                       }});
}

void LegendDrawing::addExtent()
{
    const Projection& projection = m_picture.projection;
    // Half a cell is not visible.
    const auto add = [&](const char* name, const Bounds::Range& range, double cell, const std::string& unit) {
        const int decimals = decimalsOf(roundUp(cell));
        addText(std::string(name) + ' ' + formatNumber(range.min, decimals) + " \u2013 " +
                withUnit(formatNumber(range.max, decimals), unit));
    };
    const CoordinateSystemName& system = m_text.system;
    if (!isSection()) {
        add("x", projection.across, projection.cellWidth, system.unit);
        add("y", projection.up, projection.cellHeight, system.unit);
        return;
    }
    const Corridor& line = projection.corridor;
    const int decimals = decimalsOf(roundUp(projection.cellWidth));
    const auto point = [&](double x, double y) {
        return formatNumber(x, decimals) + "  " + formatNumber(y, decimals);
    };
    if (std::isfinite(line.width)) {
        addText("from " + point(line.x0, line.y0));
        addText("to " + point(line.x1, line.y1));
        addText("width " +
                withUnit(formatNumber(line.width, decimalsOf(roundUp(line.width)) + 1), system.unit));
    } else {
        addText("from the south");
        add("x", {line.x0 + projection.across.min, line.x0 + projection.across.max}, projection.cellWidth,
            system.unit);
    }
    if (!system.isGeographic && projection.exaggeration() > 1.01)
        addText("vertical" + std::string(times) + formatNumber(std::round(projection.exaggeration()), 0));
}

void LegendDrawing::addPoints()
{
    const std::uint64_t shown = m_picture.numShown;
    if (!m_text.numPoints || *m_text.numPoints < shown || shown == 1) {
        addText(formatCount(shown) + (shown == 1 ? " point" : " points"));
    } else if (*m_text.numPoints == shown) {
        addText("all " + formatCount(shown) + " points");
    } else {
        const double share = static_cast<double>(shown) / static_cast<double>(*m_text.numPoints) * 100;
        addText(formatNumber(share, share < 1    ? 3
                                    : share < 10 ? 2
                                                 : 1) +
                " % of " + formatCount(*m_text.numPoints) + " points");
    }
}

void LegendDrawing::drawAxes(Image& image, double left, double top) const
{
    const Projection& projection = m_picture.projection;
    const auto width = static_cast<double>(m_picture.width()),
               height = static_cast<double>(m_picture.height());
    const double bottom = top + height, tick = m_height * 0.35;
    drawLine(image, left - 0.5, top, left - 0.5, bottom + 0.5, 1.2, m_ink);
    drawLine(image, left - 0.5, bottom + 0.5, left + width, bottom + 0.5, 1.2, m_ink);
    const auto label = [&](double x, double y, const std::string& text) {
        drawText(image, x, y, text, m_height, m_ink);
    };
    const double spanAcross = projection.cellWidth * static_cast<double>(projection.columns),
                 spanUp = projection.cellHeight * static_cast<double>(projection.rows);
    const Bounds::Range up = {projection.up.max - spanUp, projection.up.max};
    for (const Tick& each : chooseTicks(up, height / (2.5 * m_height))) {
        const double y = top + (up.max - each.value) / spanUp * height + 0.5;
        drawLine(image, left - 0.5 - tick, y, left - 0.5, y, 1.2, m_ink);
        label(left - tick - m_height * 0.3 - static_cast<double>(textWidth(each.label, m_height)),
              y + m_height * 0.28, each.label);
    }
    const Bounds::Range across = {projection.across.min, projection.across.min + spanAcross};
    for (const Tick& each : chooseTicks(across, width / (6 * m_height))) {
        const double x = left + (each.value - across.min) / spanAcross * width;
        drawLine(image, x, bottom + 0.5, x, bottom + 0.5 + tick, 1.2, m_ink);
        label(x - static_cast<double>(textWidth(each.label, m_height)) / 2, bottom + tick + m_height,
              each.label);
    }
    const CoordinateSystemName& system = m_text.system;
    label(left, top - m_height * 0.5, system.heightUnit.empty() ? "z" : "z (" + system.heightUnit + ')');
    const std::string distance = system.unit.empty() ? "distance" : "distance (" + system.unit + ')';
    label(left + (width - static_cast<double>(textWidth(distance, m_height))) / 2,
          bottom + tick + m_height * 2.3, distance);
}

Image LegendDrawing::draw()
{
    addText(printable(m_text.title));
    addGap();
    addColors();
    addGap();
    if (!isSection()) {
        addScaleBar();
        addGap();
    }
    addExtent();
    if (!m_text.system.name.empty())
        addWrapped(printable(m_text.system.name));
    addPoints();

    const auto width = static_cast<double>(m_picture.width()),
               height = static_cast<double>(m_picture.height());
    const double margin = m_height;
    const double left = isSection() ? m_height * 6 : 0, top = isSection() ? m_height * 2 : 0;
    const double below = isSection() ? m_height * 3.2 : 0;
    double needed = 2 * margin;
    for (const Part& part : m_parts)
        needed += part.height;
    Image image(static_cast<std::size_t>(left + width + m_columns + 2 * margin),
                static_cast<std::size_t>(std::max(top + height + below, needed)), m_background);
    drawCells(m_picture.cells, m_picture.projection, m_picture.shading, image, static_cast<std::size_t>(left),
              static_cast<std::size_t>(top));
    if (isSection())
        drawAxes(image, left, top);
    double y = margin;
    for (const Part& part : m_parts) {
        if (part.draw)
            part.draw(image, std::floor(left + width + margin), std::floor(y));
        y += part.height;
    }
    return image;
}

} // namespace

LegendText LegendText::describe(const PointSource& source, const std::string& title)
{
    LegendText text;
    text.title = title;
    text.system = CoordinateSystemName::parse(source.getWKT());
    if (source.getNumPoints() != PointSource::unknownNumPoints)
        text.numPoints = static_cast<std::uint64_t>(source.getNumPoints());
    constexpr std::size_t numCodes = 256;
    for (std::size_t code = 0; code < numCodes; ++code)
        text.classNames.push_back(printable(Utils::classNameOf(source, code)));
    return text;
}

Image drawPicture(const Picture& picture, Color background)
{
    Image image(picture.width(), picture.height(), background);
    drawCells(picture.cells, picture.projection, picture.shading, image, 0, 0);
    return image;
}

Image drawPicture(const Picture& picture, Color background, const LegendText& legend)
{
    return LegendDrawing(picture, legend, background).draw();
}

} // namespace Quillmoran
