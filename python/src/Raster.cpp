// Rasters, in arrays or as a file.
#include "Bindings.h"

#include <vxunpack/Raster.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

namespace vx::python {

using namespace Quillmoran;

namespace {

using Bands = std::vector<std::pair<std::string, py::array>>;

// xmin, ymax, resolution, columns, rows
using GridTuple = std::tuple<double, double, double, std::size_t, std::size_t>;

GridTuple toTuple(const RasterGrid& grid)
{
    return {grid.xMin(), grid.yMax(), grid.resolution, grid.columns, grid.rows};
}

RasterGrid toGrid(const GridTuple& tuple)
{
    const auto& [xMin, yMax, resolution, columns, rows] = tuple;
    return {resolution, std::llround(xMin / resolution), std::llround(yMax / resolution) - 1, columns, rows};
}

struct Arguments
{
    RasterOptions options(const std::shared_ptr<Warnings>& warnings, Progress& progress) const
    {
        RasterOptions all;
        all.resolution = resolution;
        all.box = toBox(box);
        all.fraction = fraction;
        for (const std::string& layer : layers)
            all.layers.push_back(RasterLayer::parse(layer));
        all.threads = threads;
        all.maxBytes = maxBytes;
        all.progress = [&progress](double done) { return progress(done); };
        all.warning = [warnings](const std::string& message) { warnings->add(message); };
        return all;
    }

    double resolution;
    std::vector<std::string> layers;
    BoxTuple box;
    double fraction;
    std::size_t maxBytes;
    unsigned threads;
};

// Runs without the interpreter lock. What Ctrl-C or the progress function raised is passed on.
template <class Work>
auto run(const PythonCloud& cloud, const Arguments& arguments, py::object report, Work work)
{
    Progress progress(std::move(report));
    const RasterOptions options = arguments.options(cloud.warnings, progress);
    decltype(work(options)) result;
    try {
        const Released released;
        result = work(options);
    } catch (const Error&) {
        progress.rethrow();
        throw;
    }
    progress.rethrow();
    return result;
}

// Counts become integers; other values keep their memory.
py::array toArray(const RasterGrid& grid, std::vector<double> cells, bool isCount)
{
    const std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(grid.rows),
                                            static_cast<py::ssize_t>(grid.columns)};
    if (isCount) {
        py::array_t<std::int64_t> counts(shape);
        std::transform(cells.begin(), cells.end(), counts.mutable_data(),
                       [](double number) { return static_cast<std::int64_t>(number); });
        return counts;
    }
    auto owned = std::make_unique<std::vector<double>>(std::move(cells));
    const py::capsule owner(owned.get(),
                            [](void* vector) { delete static_cast<std::vector<double>*>(vector); });
    double* const values = owned.release()->data();
    return py::array_t<double>(shape, values, owner);
}

// A GeoTIFF that is made of arrays.
class Writer
{
public:
    Writer(const std::string& path, const GridTuple& grid, std::vector<std::string> bands,
           const std::string& type, std::string coordinateSystem, unsigned threads)
    {
        m_options.bands = std::move(bands);
        m_options.samples = type == "uint32"    ? RasterFileOptions::Samples::UInt32
                            : type == "float32" ? RasterFileOptions::Samples::Float32
                                                : RasterFileOptions::Samples::Float64;
        m_options.coordinateSystem = std::move(coordinateSystem);
        m_options.threads = threads;
        m_options.progress = [this](double done) { return !m_progress || (*m_progress)(done); };
        m_options.warning = [this](const std::string& message) { m_warnings.add(message); };
        m_writer = std::make_unique<RasterWriter>(path, toGrid(grid), m_options);
    }

    // The arrays are contiguous, of doubles, and have the shape of the grid.
    void write(const GridTuple& grid, const std::vector<py::array_t<double>>& bands)
    {
        RasterPart part;
        part.grid = toGrid(grid);
        for (const py::array_t<double>& band : bands)
            part.bands.emplace_back(band.data(), static_cast<std::size_t>(band.size()));
        const Released released;
        m_writer->write(part);
    }

    void commit(py::object report)
    {
        m_progress.emplace(std::move(report));
        try {
            const Released released;
            m_writer->commit();
        } catch (const Error&) {
            m_progress->rethrow();
            throw;
        }
        m_progress->rethrow();
    }

    void close() { m_writer.reset(); }
    std::vector<std::string> takeWarnings() { return m_warnings.take(); }

private:
    RasterFileOptions m_options;
    Warnings m_warnings;
    std::optional<Progress> m_progress;
    std::unique_ptr<RasterWriter> m_writer;
};

} // namespace

void bindRaster(py::module_& module)
{
    py::class_<Writer>(module, "RasterWriter")
        .def(py::init<const std::string&, const GridTuple&, std::vector<std::string>, const std::string&,
                      std::string, unsigned>())
        .def("write", &Writer::write)
        .def("commit", &Writer::commit)
        .def("close", &Writer::close)
        .def("take_warnings", &Writer::takeWarnings);
    // The channels that a layer needs.
    module.def("raster_channels", [](const std::string& layer) {
        const RasterLayer parsed = RasterLayer::parse(layer);
        std::vector<std::string> channels;
        if (parsed.statistic != RasterLayer::Statistic::Count)
            channels.push_back(parsed.channel);
        if (!parsed.classes.empty())
            channels.emplace_back("ClassId");
        return channels;
    });
    module.def("raster", [](const PythonCloud& cloud, double resolution, std::vector<std::string> layers,
                            const BoxTuple& box, double fraction, std::size_t maxBytes, unsigned threads,
                            py::object progress) {
        const Arguments arguments = {resolution, std::move(layers), box, fraction, maxBytes, threads};
        Raster raster = run(cloud, arguments, std::move(progress), [&](const RasterOptions& options) {
            return vx::rasterize(cloud.cloud, options);
        });
        Bands bands;
        for (std::size_t i = 0; i < raster.bands.size(); ++i) {
            const bool isCount =
                RasterLayer::parse(arguments.layers[i]).statistic == RasterLayer::Statistic::Count;
            bands.emplace_back(raster.bands[i].name,
                               toArray(raster.grid, std::move(raster.bands[i].cells), isCount));
        }
        return std::pair(toTuple(raster.grid), std::move(bands));
    });
    module.def("write_raster", [](const PythonCloud& cloud, const std::string& path, double resolution,
                                  std::vector<std::string> layers, const BoxTuple& box, double fraction,
                                  std::size_t maxBytes, unsigned threads, py::object progress) {
        const Arguments arguments = {resolution, std::move(layers), box, fraction, maxBytes, threads};
        return toTuple(run(cloud, arguments, std::move(progress), [&](const RasterOptions& options) {
            return vx::writeRaster(path, cloud.cloud, options);
        }));
    });
}

} // namespace vx::python
