// The cells of a raster, or of a part of one, while points are added to them:
//
//   RasterAccumulator cells(grid, layers, layout);
//   while (const std::size_t count = points->getNextPoints(block))
//       cells.add(block, count);
//   cells.finish(0, values);
//
// The result does not depend on the size of blocks or on how points are distributed among accumulators that
// are merged. Used by one thread at a time.
#pragma once

#include "raster/RasterKernels.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointInfo.h>
#include <vxunpack/RasterGrid.h>
#include <vxunpack/RasterLayer.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace Quillmoran {

class RasterAccumulator
{
public:
    static constexpr std::uint64_t maxCells = std::numeric_limits<std::uint32_t>::max();

    // The name that was given, or else the text of the layer.
    static std::string nameOf(const RasterLayer& layer);
    // The channels that the layers need, with X, Y and Z. Throws InvalidArgument for a channel that does not
    // exist, for a class that does not fit into a byte, and for two layers with the same name.
    static PointInfo chooseChannels(const std::vector<RasterLayer>& layers, const PointInfo& all);
    // The memory of all layers.
    static std::size_t bytesPerCell(const std::vector<RasterLayer>& layers);

    // The blocks have this layout, which chooseChannels() made. Throws InvalidArgument for more than
    // maxCells.
    RasterAccumulator(const RasterGrid& grid, const std::vector<RasterLayer>& layers,
                      const PointInfo& layout);

    const RasterGrid& grid() const noexcept { return m_grid; }

    // Adds the first `count` points. Returns how many of them are in the grid.
    std::size_t add(const PointData& block, std::size_t count);
    // Adds the cells of an accumulator with the same grid and layers.
    void merge(const RasterAccumulator& other);
    // The values of a layer, row by row from the north; NaN for cells without points, 0 for counts.
    void finish(std::size_t layer, std::span<double> values) const;

private:
    using Cells = std::variant<std::vector<std::uint64_t>, std::vector<double>, std::vector<CellSum>>;
    struct Layer
    {
        RasterLayer::Statistic statistic;
        std::size_t channel; // index in m_values
        Cells cells;
    };
    // Layers over the same points.
    struct Group
    {
        RasterLayer::Returns returns;
        std::vector<int> classes;
        RasterKernels::ClassTable table{};
        std::vector<std::size_t> layers;
    };
    struct Channel
    {
        std::size_t index; // in the blocks
        std::vector<double> values;
    };
    struct Codes // of a channel of the blocks, -1 if there is none
    {
        int index = -1;
        std::vector<std::int16_t> codes;
    };

    void readBlock(const PointData& block, std::size_t count);
    std::size_t select(const Group& group, std::size_t numHits);
    void addTo(Layer& layer, RasterKernels::Hits hits, std::size_t numHits);

    const RasterGrid m_grid;
    std::vector<Layer> m_layers;
    std::vector<Group> m_groups;
    std::vector<Channel> m_channels;
    Codes m_classes, m_numbers, m_totals;
    // Of a block: all hits in the grid, and those of a group.
    std::vector<std::uint32_t> m_points, m_cells, m_keptPoints, m_keptCells;
};

} // namespace Quillmoran
