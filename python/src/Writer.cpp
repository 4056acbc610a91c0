// Clouds made of arrays, and writing files.
#include "Bindings.h"
#include "Spool.h"

#include <array>
#include <optional>
#include <utility>

namespace vx::python {

using namespace Quillmoran;

namespace {

// Channels with their arrays, which are contiguous, of the same length and of the type of their channel: the
// Python sources of the package see to it.
using Columns = std::vector<std::pair<ChannelTuple, py::array>>;

// The cloud shares the arrays.
PythonCloud fromColumns(Columns columns)
{
    std::vector<Column> all;
    for (const auto& column : columns) {
        const Channel channel = toChannel(column.first);
        const py::array& array = column.second;
        visitDataType(channel.type, [&](auto sample) {
            const std::span samples(static_cast<const decltype(sample)*>(array.data()),
                                    static_cast<std::size_t>(array.size()));
            all.emplace_back(channel.name, samples, channel.scale);
        });
    }
    const auto arrays = shareUnlocked(std::move(columns));
    const Released released;
    return {arrays, vx::Cloud::fromColumns(std::move(all))};
}

void append(Spool& spool, const std::vector<py::array>& columns)
{
    std::vector<const void*> arrays;
    for (const py::array& column : columns)
        arrays.push_back(column.data());
    const auto count = static_cast<std::size_t>(columns.empty() ? 0 : columns.front().size());
    const Released released;
    spool.append(arrays, count);
}

struct Output
{
    std::string path, format, order;
    std::optional<std::array<double, 3>> scale, offset;
    bool restores;
    unsigned threads;
};

Order toOrder(const std::string& name)
{
    return name == "time" ? Order::Time : name == "hilbert" ? Order::Hilbert : Order::Input;
}

std::uint64_t writeCloud(const PythonCloud& cloud, const Output& output, const BoxTuple& box, double fraction,
                         const std::vector<std::string>& channels, py::object report)
{
    Progress progress(std::move(report));
    WriteOptions options;
    options.query = {toBox(box), fraction, channels};
    options.threads = output.threads;
    options.format = output.format;
    options.scale = output.scale;
    options.offset = output.offset;
    options.order = toOrder(output.order);
    options.restores = output.restores;
    options.progress = [&](double done) { return progress(done); };
    options.warning = [&](const std::string& message) { cloud.warnings->add(message); };
    std::uint64_t count = 0;
    try {
        const Released released;
        count = vx::write(output.path, cloud.cloud, options);
    } catch (const Error&) {
        progress.rethrow();
        throw;
    }
    progress.rethrow();
    return count;
}

} // namespace

void bindWriter(py::module_& module)
{
    module.def("from_columns", fromColumns);
    module.def("write", [](const PythonCloud& cloud, std::string path, std::string format, std::string order,
                           std::optional<std::array<double, 3>> scale,
                           std::optional<std::array<double, 3>> offset, bool restores, unsigned threads,
                           const BoxTuple& box, double fraction, const std::vector<std::string>& channels,
                           py::object progress) {
        return writeCloud(
            cloud, {std::move(path), std::move(format), std::move(order), scale, offset, restores, threads},
            box, fraction, channels, std::move(progress));
    });
    py::class_<Spool>(module, "Spool")
        .def(py::init([](const std::string& folder, const std::vector<ChannelTuple>& tuples) {
            std::vector<Channel> channels;
            for (const ChannelTuple& tuple : tuples)
                channels.push_back(toChannel(tuple));
            return std::make_unique<Spool>(folder, std::move(channels));
        }))
        .def("append", append)
        .def("cloud", [](const Spool& self) {
            return PythonCloud{{}, self.cloud()};
        });
}

} // namespace vx::python
