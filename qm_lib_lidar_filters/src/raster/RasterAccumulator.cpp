#include "raster/RasterAccumulator.h"

#include "model/ChannelNames.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

using Statistic = RasterLayer::Statistic;
using Returns = RasterLayer::Returns;
using RasterKernels::Hits;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

void append(PointInfo& layout, const ChannelInfo& channel)
{
    if (!layout.hasChannel(channel.getName()))
        layout.append(channel);
}

bool hasReturns(const PointInfo& layout)
{
    return layout.hasChannel(ChannelNames::returnNum) && layout.hasChannel(ChannelNames::numReturns);
}

std::size_t cellBytes(Statistic statistic)
{
    return statistic == Statistic::Mean ? sizeof(CellSum) : sizeof(double);
}

} // namespace

std::string RasterAccumulator::nameOf(const RasterLayer& layer)
{
    return layer.name.empty() ? layer.toString() : layer.name;
}

PointInfo RasterAccumulator::chooseChannels(const std::vector<RasterLayer>& layers, const PointInfo& all)
{
    PointInfo layout;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z})
        append(layout, ChannelNames::require(name, all));
    for (const RasterLayer& layer : layers) {
        const auto isSame = [&](const RasterLayer& other) { return nameOf(other) == nameOf(layer); };
        if (std::count_if(layers.begin(), layers.end(), isSame) > 1)
            QM_THROW(ErrorCode::InvalidArgument, "there are two layers '%s'", nameOf(layer).c_str());
        if (layer.statistic != Statistic::Count)
            append(layout, ChannelNames::require(layer.channel, all));
        for (const int number : layer.classes)
            if (number < 0 || number > UINT8_MAX)
                QM_THROW(ErrorCode::InvalidArgument, "there is no class %d, it must be 0 to 255", number);
        if (!layer.classes.empty())
            append(layout, ChannelNames::require(ChannelNames::classId, all));
        if (layer.returns != Returns::All && hasReturns(all))
            for (const char* name : {ChannelNames::returnNum, ChannelNames::numReturns})
                append(layout, *all.getChannel(name));
    }
    return layout;
}

std::size_t RasterAccumulator::bytesPerCell(const std::vector<RasterLayer>& layers)
{
    std::size_t bytes = 0;
    for (const RasterLayer& layer : layers)
        bytes += cellBytes(layer.statistic);
    return bytes;
}

RasterAccumulator::RasterAccumulator(const RasterGrid& grid, const std::vector<RasterLayer>& layers,
                                     const PointInfo& layout)
    : m_grid(grid)
{
    if (grid.numCells() > maxCells)
        QM_THROW(ErrorCode::InvalidArgument, "a raster of %zu x %zu cells is too large for memory",
                 grid.columns, grid.rows);
    const auto numCells = static_cast<std::size_t>(grid.numCells());
    for (const RasterLayer& layer : layers) {
        Layer& made = m_layers.emplace_back(Layer{layer.statistic, 0, {}});
        if (layer.statistic == Statistic::Count) {
            made.cells = std::vector<std::uint64_t>(numCells);
        } else {
            const auto index = static_cast<std::size_t>(
                layout.getChannelIndex(ChannelNames::require(layer.channel, layout).getName()));
            const auto known = std::find_if(m_channels.begin(), m_channels.end(),
                                            [&](const Channel& other) { return other.index == index; });
            made.channel = static_cast<std::size_t>(known - m_channels.begin());
            if (known == m_channels.end())
                m_channels.push_back({index, {}});
            if (layer.statistic == Statistic::Mean)
                made.cells = std::vector<CellSum>(numCells);
            else
                made.cells = std::vector<double>(numCells, layer.statistic == Statistic::Minimum ? infinity
                                                                                                 : -infinity);
        }
        const Returns returns = hasReturns(layout) ? layer.returns : Returns::All;
        auto group = std::find_if(m_groups.begin(), m_groups.end(), [&](const Group& other) {
            return other.returns == returns && other.classes == layer.classes;
        });
        if (group == m_groups.end()) {
            group = m_groups.insert(group, Group{returns, layer.classes, {}, {}});
            for (const int number : layer.classes)
                group->table[static_cast<std::size_t>(number)] = true;
        }
        group->layers.push_back(m_layers.size() - 1);
    }
    m_classes.index = layout.getChannelIndex(ChannelNames::classId);
    if (hasReturns(layout)) {
        m_numbers.index = layout.getChannelIndex(ChannelNames::returnNum);
        m_totals.index = layout.getChannelIndex(ChannelNames::numReturns);
    }
}

void RasterAccumulator::readBlock(const PointData& block, std::size_t count)
{
    if (m_points.size() < count)
        for (auto* list : {&m_points, &m_cells, &m_keptPoints, &m_keptCells})
            list->resize(count);
    for (Channel& channel : m_channels) {
        const ChannelData& samples = block.getChannel(channel.index);
        channel.values.resize(std::max(channel.values.size(), count));
        RasterKernels::toDoubles(samples.getData(), samples.getDataType(), count, channel.values.data());
    }
    for (Codes* codes : {&m_classes, &m_numbers, &m_totals}) {
        if (codes->index < 0)
            continue;
        const ChannelData& samples = block.getChannel(static_cast<std::size_t>(codes->index));
        codes->codes.resize(std::max(codes->codes.size(), count));
        RasterKernels::toCodes(samples.getData(), samples.getDataType(), count, codes->codes.data());
    }
}

// Fills the hits of the group and returns their number.
std::size_t RasterAccumulator::select(const Group& group, std::size_t numHits)
{
    Hits hits{m_points.data(), m_cells.data()};
    const Hits kept{m_keptPoints.data(), m_keptCells.data()};
    if (group.returns != Returns::All) {
        numHits =
            group.returns == Returns::First
                ? RasterKernels::keepFirst(m_numbers.codes.data(), hits, numHits, kept)
                : RasterKernels::keepLast(m_numbers.codes.data(), m_totals.codes.data(), hits, numHits, kept);
        hits = kept;
    }
    if (!group.classes.empty())
        numHits = RasterKernels::keepClasses(group.table, m_classes.codes.data(), hits, numHits, kept);
    return numHits;
}

void RasterAccumulator::addTo(Layer& layer, Hits hits, std::size_t numHits)
{
    if (layer.statistic == Statistic::Count) {
        RasterKernels::count(hits, numHits, std::get<0>(layer.cells).data());
        return;
    }
    const double* const values = m_channels[layer.channel].values.data();
    if (layer.statistic == Statistic::Mean)
        RasterKernels::sum(hits, numHits, values, std::get<2>(layer.cells).data());
    else if (layer.statistic == Statistic::Minimum)
        RasterKernels::minimize(hits, numHits, values, std::get<1>(layer.cells).data());
    else
        RasterKernels::maximize(hits, numHits, values, std::get<1>(layer.cells).data());
}

std::size_t RasterAccumulator::add(const PointData& block, std::size_t count)
{
    readBlock(block, count);
    const std::size_t numHits = RasterKernels::findCells(m_grid, block.getX(), block.getY(), count,
                                                         {m_points.data(), m_cells.data()});
    for (const Group& group : m_groups) {
        const bool keepsAll = group.returns == Returns::All && group.classes.empty();
        const std::size_t numKept = keepsAll ? numHits : select(group, numHits);
        const Hits hits =
            keepsAll ? Hits{m_points.data(), m_cells.data()} : Hits{m_keptPoints.data(), m_keptCells.data()};
        for (const std::size_t layer : group.layers)
            addTo(m_layers[layer], hits, numKept);
    }
    return numHits;
}

void RasterAccumulator::merge(const RasterAccumulator& other)
{
    for (std::size_t i = 0; i < m_layers.size(); ++i) {
        Layer& layer = m_layers[i];
        const Cells& added = other.m_layers[i].cells;
        if (auto* const counts = std::get_if<0>(&layer.cells))
            std::transform(counts->begin(), counts->end(), std::get<0>(added).begin(), counts->begin(),
                           [](std::uint64_t a, std::uint64_t b) { return a + b; });
        else if (auto* const extremes = std::get_if<1>(&layer.cells))
            std::transform(extremes->begin(), extremes->end(), std::get<1>(added).begin(), extremes->begin(),
                           [&](double a, double b) {
                               return layer.statistic == Statistic::Minimum ? std::min(a, b) : std::max(a, b);
                           });
        else
            std::transform(std::get<2>(layer.cells).begin(), std::get<2>(layer.cells).end(),
                           std::get<2>(added).begin(), std::get<2>(layer.cells).begin(),
                           [](CellSum a, const CellSum& b) {
                               a.add(b.high);
                               a.add(b.low);
                               a.count += b.count;
                               return a;
                           });
    }
}

void RasterAccumulator::finish(std::size_t layer, std::span<double> values) const
{
    const Cells& cells = m_layers.at(layer).cells;
    if (const auto* const counts = std::get_if<0>(&cells))
        std::transform(counts->begin(), counts->end(), values.begin(),
                       [](std::uint64_t number) { return static_cast<double>(number); });
    else if (const auto* const extremes = std::get_if<1>(&cells))
        std::transform(extremes->begin(), extremes->end(), values.begin(),
                       [](double extreme) { return std::isinf(extreme) ? nan : extreme; });
    else
        std::transform(std::get<2>(cells).begin(), std::get<2>(cells).end(), values.begin(),
                       [](const CellSum& sum) {
                           return sum.count == 0 ? nan : sum.high / static_cast<double>(sum.count);
                       });
}

} // namespace Quillmoran
