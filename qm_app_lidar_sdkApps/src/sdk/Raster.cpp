#include <vxunpack/Raster.h>

#include "geotiff/GeoTIFFWriter.h"
#include "model/ChannelNames.h"
#include "raster/RasterAccumulator.h"
#include "sdk/Callbacks.h"
#include "sdk/Queries.h"
#include "utils/sets/Inputs.h"
#include "utils/sets/PointScan.h"
#include "utils/sets/ThreadLimit.h"

#include <algorithm>
#include <cmath>

namespace vx {

using namespace Quillmoran;

namespace {

using Visit = std::function<void(const RasterPart&)>;
using Samples = RasterFileOptions::Samples;

// Parts are multiples of a block of the file, so that each block is written once.
constexpr std::size_t blockSize = GeoTIFFWriter::blockSize;

bool isFinite(const Bounds& bounds)
{
    return std::isfinite(bounds.x.min) && std::isfinite(bounds.x.max) && std::isfinite(bounds.y.min) &&
           std::isfinite(bounds.y.max);
}

// Only the fraction of the raster in one part is known: its parts are equal shares of the work.
class PartProgress final : public ProgressDelegate
{
public:
    PartProgress(ProgressDelegate& whole, std::size_t numParts) : m_whole(whole), m_numParts(numParts) {}

    void startPart(double work)
    {
        m_part = m_started++;
        setTotal(work);
        reportProgress(0, "");
    }
    void reportProgress(double fraction, const char* message) override
    {
        // NaN, or more than the estimated work
        const double done = fraction > 0 ? std::min(fraction, 1.0) : 0;
        m_whole.reportProgress((static_cast<double>(m_part) + done) / static_cast<double>(m_numParts),
                               message);
    }
    bool getCancelled() override { return m_whole.getCancelled(); }
    void displayWarning(const char* text) override { m_whole.displayWarning(text); }

private:
    ProgressDelegate& m_whole;
    const std::size_t m_numParts;
    std::size_t m_part = 0, m_started = 0;
};

class Rasterizer
{
public:
    Rasterizer(const Cloud& cloud, const RasterOptions& options)
        : m_source(cloud.source()),
          m_options(options),
          m_box(toBounds(options.box)),
          m_layers(options.layers.empty() ? defaultLayers() : options.layers),
          m_layout(RasterAccumulator::chooseChannels(m_layers, m_source.getPointInfo())),
          m_callbacks(options.progress, options.warning)
    {
        checkFraction(options.fraction);
    }

    const std::vector<RasterLayer>& layers() const { return m_layers; }

    RasterGrid findGrid() const
    {
        if (isFinite(m_box))
            return RasterGrid::make(m_box, Bounds(), m_options.resolution);
        const Bounds& points = m_source.getBounds();
        // A source without points has no range.
        const bool isKnown = isFinite(points) || m_source.getNumPoints() == 0;
        return RasterGrid::make(m_box, isKnown ? points : measurePoints(), m_options.resolution);
    }

    void run(const RasterGrid& grid, std::size_t maxBytes, const Visit& visit);

private:
    static std::vector<RasterLayer> defaultLayers()
    {
        std::vector<RasterLayer> layers;
        for (const char* text : {"count", "min", "max", "mean"})
            layers.push_back(RasterLayer::parse(text));
        return layers;
    }

    Bounds measurePoints() const
    {
        const PointInfo layout = chooseChannels(m_source.getPointInfo(), {"X"});
        Bounds bounds;
        scanPoints(m_source, Bounds::Huge(), layout, nullptr, [&](const PointData& block, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i) {
                bounds.x.grow(block.getX()[i]);
                bounds.y.grow(block.getY()[i]);
            }
        });
        return bounds;
    }

    Bounds boxOf(const RasterGrid& part, bool isWhole) const
    {
        // Points that are outside of the source's bounds are found, and counted, if all of them are read.
        if (isWhole && m_box == Bounds::Huge())
            return m_box;
        Bounds box = part.queryBox();
        box.z = m_box.z;
        return box;
    }

    void checkCancelled()
    {
        if (m_callbacks.getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    }
    void warnOfPasses(const RasterGrid& grid, std::size_t columns, std::size_t rows);
    void add(RasterAccumulator& cells, const Bounds& box, PartProgress& progress);

    const PointSource& m_source;
    const RasterOptions& m_options;
    const Bounds m_box;
    const std::vector<RasterLayer> m_layers;
    const PointInfo m_layout;
    Callbacks m_callbacks;
};

// Estimated from some of the parts: the work of a query in a large set of tiles opens the tiles.
void Rasterizer::warnOfPasses(const RasterGrid& grid, std::size_t columns, std::size_t rows)
{
    constexpr std::size_t maxSamples = 4;
    constexpr double manyPasses = 2;
    const std::size_t across = (grid.columns + columns - 1) / columns, down = (grid.rows + rows - 1) / rows;
    const std::size_t numParts = across * down, numSamples = std::min(maxSamples, numParts);
    double work = 0;
    for (std::size_t i = 0; i < numSamples; ++i) {
        const std::size_t part = i * numParts / numSamples;
        const std::size_t column = part % across * columns, row = part / across * rows;
        work += m_source.getTotalWork(boxOf(grid.part(column, row, std::min(columns, grid.columns - column),
                                                      std::min(rows, grid.rows - row)),
                                            false),
                                      m_options.fraction);
    }
    const double passes = work / static_cast<double>(numSamples) * static_cast<double>(numParts) /
                          std::max(1.0, m_source.estimatePoints(boxOf(grid, false), m_options.fraction));
    if (passes > manyPasses)
        m_callbacks.warning(
            "the raster is made in %zu parts, and the points are read about %.0f times, since "
            "they have no spatial index; %.1f GB of memory would hold it as a whole",
            numParts, passes,
            static_cast<double>(grid.numCells()) *
                static_cast<double>(RasterAccumulator::bytesPerCell(m_layers)) / 1e9);
}

void Rasterizer::add(RasterAccumulator& cells, const Bounds& box, PartProgress& progress)
{
    constexpr std::size_t maxBlockPoints = 65536;
    PointData block;
    block.init(m_layout, m_layout.getBlockPoints(maxBlockPoints));
    const Scoped<PointIterator> points(m_source.createIterator(box, m_options.fraction, m_layout, &progress));
    std::uint64_t numOutside = 0;
    while (const std::size_t count = points->getNextPoints(block)) {
        numOutside += count - cells.add(block, count);
        checkCancelled();
    }
    checkCancelled();
    if (numOutside != 0 && box == Bounds::Huge())
        m_callbacks.warning(
            "%llu points are not in the raster: their coordinates are outside of the bounds of the "
            "source, or not numbers",
            static_cast<unsigned long long>(numOutside));
}

void Rasterizer::run(const RasterGrid& grid, std::size_t maxBytes, const Visit& visit)
{
    const std::size_t cellBytes =
        RasterAccumulator::bytesPerCell(m_layers) + m_layers.size() * sizeof(double);
    const std::uint64_t maxCells = std::min<std::uint64_t>(maxBytes / cellBytes, RasterAccumulator::maxCells);
    if (maxCells < std::min<std::uint64_t>(grid.numCells(), blockSize * blockSize))
        QM_THROW(ErrorCode::InvalidArgument,
                 "%zu bytes are not enough memory for a part of a raster of %zu layers", maxBytes,
                 m_layers.size());
    std::size_t columns = grid.columns, rows = grid.rows;
    const bool isWhole = grid.numCells() <= maxCells;
    if (!isWhole) {
        const auto toBlocks = [](double length) {
            return std::max(static_cast<std::size_t>(length) / blockSize * blockSize, blockSize);
        };
        columns = std::min(grid.columns, toBlocks(std::sqrt(static_cast<double>(maxCells))));
        rows = std::min(grid.rows, toBlocks(static_cast<double>(maxCells) / static_cast<double>(columns)));
        warnOfPasses(grid, columns, rows);
    }
    const std::size_t across = (grid.columns + columns - 1) / columns, down = (grid.rows + rows - 1) / rows;
    PartProgress progress(m_callbacks, across * down);
    std::vector<std::vector<double>> values(m_layers.size());
    for (std::size_t row = 0; row < grid.rows; row += rows)
        for (std::size_t column = 0; column < grid.columns; column += columns) {
            const RasterGrid part = grid.part(column, row, std::min(columns, grid.columns - column),
                                              std::min(rows, grid.rows - row));
            const Bounds box = boxOf(part, isWhole);
            progress.startPart(isWhole ? m_source.getTotalWork(box, m_options.fraction) : 0);
            RasterPart done = {column, row, part, {}};
            {
                RasterAccumulator cells(part, m_layers, m_layout);
                add(cells, box, progress);
                for (std::size_t i = 0; i < m_layers.size(); ++i) {
                    values[i].resize(static_cast<std::size_t>(part.numCells()));
                    cells.finish(i, values[i]);
                    done.bands.emplace_back(values[i]);
                }
            }
            visit(done);
        }
    m_callbacks.reportProgress(1, "");
}

// 32 bits represent the elevations of a survey to a fraction of a millimetre, and small integers exactly.
bool needsDouble(const RasterLayer& layer, const PointInfo& all)
{
    if (layer.statistic == RasterLayer::Statistic::Count)
        return false;
    const ChannelInfo& channel = ChannelNames::require(layer.channel, all);
    constexpr std::size_t singleBytes = 2;
    return !channel.isNamed(ChannelNames::z) && channel.getDataType() != FLOAT32 &&
           DataTypeUtils::getSize(channel.getDataType()) > singleBytes;
}

template <class Work>
auto withThreads(unsigned numThreads, Work work)
{
    decltype(work()) result;
    Quillmoran::ThreadLimit limit(numThreads);
    limit.execute([&] { result = work(); });
    return result;
}

} // namespace

RasterGrid rasterGrid(const Cloud& cloud, const RasterOptions& options)
{
    return withThreads(options.threads, [&] { return Rasterizer(cloud, options).findGrid(); });
}

RasterGrid rasterize(const Cloud& cloud, const RasterOptions& options, const Visit& visit)
{
    return withThreads(options.threads, [&] {
        Rasterizer rasterizer(cloud, options);
        const RasterGrid grid = rasterizer.findGrid();
        rasterizer.run(grid, options.maxBytes, visit);
        return grid;
    });
}

Raster rasterize(const Cloud& cloud, const RasterOptions& options)
{
    return withThreads(options.threads, [&] {
        Rasterizer rasterizer(cloud, options);
        Raster raster = {rasterizer.findGrid(), {}};
        const std::size_t columns = raster.grid.columns;
        const double bytes = static_cast<double>(raster.grid.numCells()) *
                             static_cast<double>(rasterizer.layers().size() * sizeof(double));
        if (bytes > static_cast<double>(options.maxBytes) / 2)
            QM_THROW(ErrorCode::InvalidArgument,
                     "a raster of %zu x %zu cells needs more memory than half of the maximum of %zu bytes; "
                     "write it "
                     "to a file",
                     columns, raster.grid.rows, options.maxBytes);
        for (const RasterLayer& layer : rasterizer.layers())
            raster.bands.push_back({RasterAccumulator::nameOf(layer), columns,
                                    std::vector<double>(static_cast<std::size_t>(raster.grid.numCells()))});
        const auto copy = [&](const RasterPart& part) {
            for (std::size_t band = 0; band < part.bands.size(); ++band)
                for (std::size_t row = 0; row < part.grid.rows; ++row)
                    std::copy_n(part.bands[band].begin() +
                                    static_cast<std::ptrdiff_t>(row * part.grid.columns),
                                part.grid.columns,
                                raster.bands[band].cells.begin() +
                                    static_cast<std::ptrdiff_t>((part.row + row) * columns + part.column));
        };
        rasterizer.run(raster.grid, options.maxBytes - static_cast<std::size_t>(bytes), copy);
        return raster;
    });
}

RasterGrid writeRaster(const std::string& path, const Cloud& cloud, const RasterOptions& options)
{
    if (cloud.files())
        Utils::refuseInputs(*cloud.files(), path.c_str());
    // Making the cells, and compressing them.
    const auto reportHalf = [&](double begin) {
        return [&options, begin](double done) {
            return !options.progress || options.progress(begin + done / 2);
        };
    };
    RasterOptions making = options;
    making.progress = reportHalf(0);
    return withThreads(options.threads, [&] {
        Rasterizer rasterizer(cloud, making);
        const RasterGrid grid = rasterizer.findGrid();
        RasterFileOptions file;
        file.samples = Samples::UInt32;
        file.coordinateSystem = cloud.coordinateSystem();
        file.threads = options.threads;
        file.warning = options.warning;
        file.progress = reportHalf(0.5);
        for (const RasterLayer& layer : rasterizer.layers()) {
            file.bands.push_back(RasterAccumulator::nameOf(layer));
            if (needsDouble(layer, cloud.source().getPointInfo()))
                file.samples = Samples::Float64;
            else if (layer.statistic != RasterLayer::Statistic::Count && file.samples == Samples::UInt32)
                file.samples = Samples::Float32;
        }
        RasterWriter writer(path, grid, file);
        rasterizer.run(grid, options.maxBytes, [&](const RasterPart& part) { writer.write(part); });
        writer.commit();
        return grid;
    });
}

struct RasterWriter::Impl
{
    Impl(const std::string& path, const RasterGrid& raster, const RasterFileOptions& given)
        : grid(raster),
          options(given),
          callbacks(options.progress, options.warning),
          file(path, layoutOf(raster, given), &callbacks)
    {}

    static GeoTIFFLayout layoutOf(const RasterGrid& grid, const RasterFileOptions& options)
    {
        if (options.bands.empty() || grid.numCells() == 0)
            QM_THROW(ErrorCode::InvalidArgument, "a raster has at least one band and one cell");
        GeoTIFFLayout layout;
        layout.columns = grid.columns;
        layout.rows = grid.rows;
        layout.xMin = grid.xMin();
        layout.yMax = grid.yMax();
        layout.cellSize = grid.resolution;
        layout.type = options.samples == Samples::UInt32    ? GeoTIFFLayout::Counts
                      : options.samples == Samples::Float32 ? GeoTIFFLayout::Single
                                                            : GeoTIFFLayout::Double;
        layout.bands = options.bands;
        layout.wkt = options.coordinateSystem;
        return layout;
    }

    void begin() const
    {
        if (isDone)
            QM_THROW(ErrorCode::InvalidArgument, "the raster is complete");
    }

    bool isDone = false; // or commit() has failed
    const RasterGrid grid;
    const RasterFileOptions options;
    Callbacks callbacks;
    GeoTIFFWriter file;
};

RasterWriter::RasterWriter(const std::string& path, const RasterGrid& grid, const RasterFileOptions& options)
    : m_impl(new Impl(path, grid, options))
{}

RasterWriter::~RasterWriter() = default;

void RasterWriter::write(const RasterPart& part)
{
    m_impl->begin();
    const RasterGrid& whole = m_impl->grid;
    const RasterGrid& grid = part.grid;
    // Of the cells before the part; below 0 if the part begins outside of the raster.
    const std::int64_t column = grid.west - whole.west, row = whole.north - grid.north;
    const auto fits = [](std::int64_t begin, std::size_t length, std::size_t end) {
        return begin >= 0 && length <= end && static_cast<std::size_t>(begin) <= end - length;
    };
    if (grid.resolution != whole.resolution || !fits(column, grid.columns, whole.columns) ||
        !fits(row, grid.rows, whole.rows))
        QM_THROW(ErrorCode::InvalidArgument, "a part of %zu x %zu cells is not inside of the raster",
                 grid.columns, grid.rows);
    const auto hasCells = [&](std::span<const double> band) { return band.size() == grid.numCells(); };
    if (part.bands.size() != m_impl->options.bands.size() || !std::ranges::all_of(part.bands, hasCells))
        QM_THROW(ErrorCode::InvalidArgument, "a part has other bands than the raster");
    for (std::size_t band = 0; band < part.bands.size(); ++band)
        m_impl->file.write(band, static_cast<std::size_t>(column), static_cast<std::size_t>(row),
                           grid.columns, grid.rows, part.bands[band].data());
}

void RasterWriter::commit()
{
    m_impl->begin();
    m_impl->isDone = true;
    m_impl->file.commit(Quillmoran::ThreadLimit::resolve(m_impl->options.threads));
}

} // namespace vx
