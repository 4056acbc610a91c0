// Rasters: a statistic of the points in each cell of a grid, in memory or as a GeoTIFF.
//
//   const vx::RasterOptions options = {.resolution = 1, .layers = {vx::RasterLayer::parse("ground")}};
//   const vx::Raster raster = vx::rasterize(vx::open("tiles.index"), options);
//   const double height = raster.bands[0].at(row, column); // NaN without ground points
//   vx::writeRaster("ground.tif", vx::open("tiles.index"), options);
//
// RasterGrid.h describes the cells, RasterLayer.h the statistics. A raster that needs more memory than is
// allowed is made in parts, each from the points in its box; every cell has the same value as if it was made
// at once, since each point is in exactly one cell, and sums are exact. A source without a spatial index is
// then read once for each part, and a warning says so. Failures are exceptions of type vx::Error.
#pragma once

#include <vxunpack/Cloud.h>
#include <vxunpack/RasterGrid.h>
#include <vxunpack/RasterLayer.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vx {

using Quillmoran::RasterGrid;
using Quillmoran::RasterLayer;

struct RasterOptions
{
    double resolution = 1; // the edge of a cell, in the units of the coordinates
    // In X and Y widened to whole cells; by default, and where it is unbounded, the cells of all points. In Z
    // it selects points.
    Box box = {};
    double fraction = 1;                  // of the points, as in Query
    std::vector<RasterLayer> layers = {}; // empty: count, and minimum, maximum and mean of Z
    unsigned threads = 0;                 // the maximum; 0: one per core
    // Of the cells that are being made, with the result of rasterize().
    std::size_t maxBytes = std::size_t{1} << 30;
    // Called with the fraction done, 0 to 1. If it returns false, Cancelled is thrown. Exceptions of both
    // functions are passed on.
    std::function<bool(double)> progress = {};
    std::function<void(const std::string&)> warning = {};
};

struct RasterBand
{
    // Row 0 is the northern one, column 0 the western one.
    double at(std::size_t row, std::size_t column) const { return cells[row * columns + column]; }

    std::string name;
    std::size_t columns = 0;
    std::vector<double> cells = {}; // row by row; NaN without points, 0 for counts
};

struct Raster
{
    RasterGrid grid;
    std::vector<RasterBand> bands; // of the layers, in their order
};

// A part of a raster that is complete.
struct RasterPart
{
    std::size_t column = 0, row = 0; // of its first cell in the raster
    RasterGrid grid;
    std::vector<std::span<const double>> bands; // valid until the next part
};

// The grid of a raster. Reads the points if neither the box nor the source gives their extent. Errors:
// InvalidArgument for a resolution that is not above 0 or too fine, or if there are no points and no box.
QM_API RasterGrid rasterGrid(const Cloud& cloud, const RasterOptions& options);

// The whole raster. Errors: those of rasterGrid(); InvalidArgument for an unknown channel, for two layers
// with one name, and if the raster needs more than maxBytes; those of reading.
QM_API Raster rasterize(const Cloud& cloud, const RasterOptions& options);

// Calls `visit` for each part of a raster of any size, in rows from the north; returns its grid. The parts
// are as large as maxBytes allows.
QM_API RasterGrid rasterize(const Cloud& cloud, const RasterOptions& options,
                            const std::function<void(const RasterPart& part)>& visit);

// Writes a cloud-optimized GeoTIFF with the coordinate system of the cloud and a band for each layer, named
// as it. The samples are numbers of 32 bits if all layers are counts; otherwise floating-point numbers of 64
// bits if a layer has a channel of 32 or 64 bits other than Z, else of 32 bits. The file is complete or
// absent: after an error, an existing file at the path is unchanged. Errors: those of rasterize(); General
// for an input of the cloud; those of writing.
QM_API RasterGrid writeRaster(const std::string& path, const Cloud& cloud, const RasterOptions& options);

// How to write a GeoTIFF.
struct RasterFileOptions
{
    enum class Samples
    {
        UInt32, // counts only; there is no no-data value
        Float32,
        Float64
    };

    std::vector<std::string> bands = {}; // their names
    Samples samples = Samples::Float32;
    std::string coordinateSystem = {};         // WKT; empty: none
    unsigned threads = 0;                      // the maximum; 0: one per core
    std::function<bool(double)> progress = {}; // of commit(), as in RasterOptions
    std::function<void(const std::string&)> warning = {};
};

// Writes a GeoTIFF as writeRaster() does, from parts that were made before, such as those of several
// processes. Cells that no part has are no-data. Used by one thread at a time.
class QM_API RasterWriter
{
public:
    // Errors: InvalidArgument without bands; those of creating a file.
    RasterWriter(const std::string& path, const RasterGrid& grid, const RasterFileOptions& options);
    // Without commit(), no file is left and an existing one is unchanged.
    ~RasterWriter();
    RasterWriter(const RasterWriter&) = delete;
    RasterWriter& operator=(const RasterWriter&) = delete;

    // The place of the part follows from its grid. Replaces its cells. Errors: InvalidArgument for a part
    // that is not inside of the raster, or has another resolution or another number of bands; those of
    // writing.
    void write(const RasterPart& part);
    // Completes the file. Then both functions are InvalidArgument.
    void commit();

private:
    struct QM_HIDDEN Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vx
