#include "view/CellReader.h"

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

PointInfo chooseLayout(const PointInfo& all, const Quantity& quantity)
{
    std::vector<const char*> names = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (const std::string& channel : quantity.channels)
        if (std::find(names.begin(), names.end(), channel) == names.end())
            names.push_back(channel.c_str());
    PointInfo layout;
    layout.init(all, names.data(), names.size());
    return layout;
}

void toDoubles(const ChannelData& channel, std::size_t count, double* values)
{
    visitDataType(channel.getDataType(), [&](auto sample) {
        const auto* const samples = static_cast<const decltype(sample)*>(channel.getData());
        for (std::size_t i = 0; i < count; ++i)
            values[i] = static_cast<double>(samples[i]);
    });
}

// Other types are converted to the 16 bits that LAS has.
std::vector<std::uint16_t> toColorSamples(const ChannelData& channel, std::size_t count)
{
    constexpr double largest = 65535;
    std::vector<std::uint16_t> samples(count);
    visitDataType(channel.getDataType(), [&](auto sample) {
        const auto* const from = static_cast<const decltype(sample)*>(channel.getData());
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = static_cast<double>(from[i]);
            samples[i] = static_cast<std::uint16_t>(value > 0 ? std::min(value, largest) : 0);
        }
    });
    return samples;
}

// Packs colours, and adds to what is known of all.
void packColors(const std::uint16_t* red, const std::uint16_t* green, const std::uint16_t* blue,
                std::size_t count, double* values, CellPoints& points)
{
    std::uint16_t all = 0, different = 0;
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = packColor(red[i], green[i], blue[i]);
        all = static_cast<std::uint16_t>(all | red[i] | green[i] | blue[i]);
        different = static_cast<std::uint16_t>(different | (red[i] ^ red[0]) | (green[i] ^ green[0]) |
                                               (blue[i] ^ blue[0]));
    }
    points.allColors |= all;
    const bool isFirst = points.numRead == count;
    if (isFirst)
        points.firstColor = values[0];
    points.hasOneColor = points.hasOneColor && different == 0 && values[0] == points.firstColor;
}

// Disjoint boxes give a box without points.
Bounds intersection(const Bounds& a, const Bounds& b)
{
    const auto both = [](const Bounds::Range& one, const Bounds::Range& other) {
        return Bounds::Range{std::max(one.min, other.min), std::min(one.max, other.max)};
    };
    return {both(a.x, b.x), both(a.y, b.y), both(a.z, b.z)};
}

void growBy(Bounds::Range& range, const double* values, std::size_t count)
{
    double least = range.min, largest = range.max;
    for (std::size_t i = 0; i < count; ++i) {
        least = values[i] < least ? values[i] : least;
        largest = values[i] > largest ? values[i] : largest;
    }
    range = {least, largest};
}

// A slanted corridor fills only a part of the box around it. Boxes around its parts have fewer points of others.
std::vector<Bounds> divideCorridor(const Projection& projection, bool usesBoxes)
{
    const Bounds all = boxOf(projection);
    const Corridor& line = projection.corridor;
    const double length = line.length(), area = length * line.width;
    const double around = (all.x.max - all.x.min) * (all.y.max - all.y.min);
    if (!usesBoxes || !std::isfinite(around) || !(area > 0))
        return {all};
    constexpr double most = 16;
    const auto numParts = static_cast<std::size_t>(std::clamp(around / area / 2, 1.0, most));
    std::vector<Bounds> boxes;
    for (std::size_t i = 0; i < numParts; ++i) {
        const auto pointAt = [&](std::size_t part) {
            const double share = static_cast<double>(part) / static_cast<double>(numParts);
            return std::pair(line.x0 + share * (line.x1 - line.x0), line.y0 + share * (line.y1 - line.y0));
        };
        Projection part = projection;
        std::tie(part.corridor.x0, part.corridor.y0) = pointAt(i);
        std::tie(part.corridor.x1, part.corridor.y1) = pointAt(i + 1);
        boxes.push_back(boxOf(part));
    }
    return boxes;
}

class CellFiller
{
public:
    CellFiller(const PointSource& source, const Projection& projection, const Quantity& quantity)
        : m_projection(projection),
          m_quantity(quantity),
          m_layout(chooseLayout(source.getPointInfo(), quantity)),
          m_points(projection)
    {
        constexpr std::size_t maxBlockPoints = 65536;
        m_block.init(m_layout, m_layout.getBlockPoints(maxBlockPoints));
        m_found.resize(m_block.getNumSamples());
        m_depths.resize(m_found.size());
        m_values.resize(m_found.size());
        if (quantity.kind == Quantity::Density)
            m_points.cells.counts.resize(m_points.cells.size());
    }

    // Points of a section are taken if their distance along the line is in the range, so that boxes may overlap.
    void read(const PointSource& source, const Bounds& box, const Bounds::Range& along,
              const CellQuery& query, ProgressDelegate* delegate)
    {
        const Scoped<PointIterator> points(source.createIterator(box, query.fraction, m_layout, delegate));
        while (const std::size_t count = points->getNextPoints(m_block)) {
            add(count, along);
            if (!delegate)
                continue;
            delegate->updateCompleted(0, query.activity);
            if (delegate->getCancelled())
                QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        }
    }

    CellPoints& points() { return m_points; }

private:
    void add(std::size_t count, const Bounds::Range& along)
    {
        const double *x = m_block.getX(), *y = m_block.getY(), *z = m_block.getZ();
        m_points.numRead += count;
        if (m_projection.view == View::Top) {
            growBy(m_points.across, x, count);
            growBy(m_points.up, y, count);
            if (!m_hasOrigin && std::isfinite(z[0])) {
                m_origin = z[0];
                m_hasOrigin = true;
            }
            m_points.numShown += CellLoops::findFromAbove(m_projection, m_origin, x, y, z, count,
                                                          m_found.data(), m_depths.data());
        } else {
            m_points.numShown += CellLoops::findInSection(m_projection, along, x, y, z, count, m_found.data(),
                                                          m_depths.data());
            for (std::size_t i = 0; i < count; ++i)
                if (m_found[i] != CellLoops::outside)
                    m_points.up.grow(z[i]);
        }
        if (m_quantity.kind == Quantity::Density)
            CellLoops::countPoints(m_found.data(), count, m_points.cells);
        m_points.numWithoutValue +=
            CellLoops::keepFront(m_found.data(), m_depths.data(), findValues(count), count, m_points.cells);
    }

    const double* findValues(std::size_t count)
    {
        if (m_quantity.kind == Quantity::Colors) {
            const std::uint16_t* bands[3];
            std::vector<std::uint16_t> converted[3];
            for (std::size_t i = 0; i < 3; ++i) {
                const ChannelData& channel = *m_block.getChannel(m_quantity.channels[i].c_str());
                if (channel.getDataType() != UINT16)
                    converted[i] = toColorSamples(channel, count);
                bands[i] = channel.getDataType() == UINT16
                               ? static_cast<const std::uint16_t*>(channel.getData())
                               : converted[i].data();
            }
            packColors(bands[0], bands[1], bands[2], count, m_values.data(), m_points);
            return m_values.data();
        }
        if (m_quantity.channels.empty())
            return m_block.getZ();
        toDoubles(*m_block.getChannel(m_quantity.channels[0].c_str()), count, m_values.data());
        return m_values.data();
    }

    const Projection& m_projection;
    const Quantity& m_quantity;
    const PointInfo m_layout;
    CellPoints m_points;
    PointData m_block;
    std::vector<std::uint32_t> m_found; // of the points of a block, as the next two
    std::vector<float> m_depths;
    std::vector<double> m_values;
    double m_origin = 0; // of depths
    bool m_hasOrigin = false;
};

} // namespace

Bounds boxOf(const Projection& projection)
{
    Bounds box = Bounds::Huge();
    if (projection.view == View::Top)
        return box;
    const Corridor& line = projection.corridor;
    const double length = line.length(), halfWidth = line.width / 2;
    if (!std::isfinite(halfWidth))
        return box;
    const double east = std::abs(line.y1 - line.y0) / length * halfWidth,
                 north = std::abs(line.x1 - line.x0) / length * halfWidth;
    box.x = {std::min(line.x0, line.x1) - east, std::max(line.x0, line.x1) + east};
    box.y = {std::min(line.y0, line.y1) - north, std::max(line.y0, line.y1) + north};
    return box;
}

CellPoints readCells(const PointSource& source, const Projection& projection, const Quantity& quantity,
                     const CellQuery& query, ProgressDelegate* delegate)
{
    CellFiller filler(source, projection, quantity);
    std::vector<Bounds> boxes = {Bounds::Huge()};
    if (projection.view == View::Section)
        boxes = divideCorridor(projection, query.usesBoxes);
    for (Bounds& box : boxes)
        box = intersection(box, query.box);
    if (delegate) {
        double work = 0;
        for (const Bounds& box : boxes)
            work += source.getTotalWork(box, query.fraction);
        delegate->setTotal(work);
        delegate->updateCompleted(0, query.activity); // before readers name theirs
    }
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const double length = projection.corridor.length() / static_cast<double>(boxes.size());
        Bounds::Range along = {-infinity, infinity};
        if (i != 0)
            along.min = static_cast<double>(i) * length;
        if (i + 1 != boxes.size())
            along.max = static_cast<double>(i + 1) * length;
        filler.read(source, boxes[i], along, query, delegate);
    }
    return std::move(filler.points());
}

} // namespace Quillmoran
