// Opening clouds and describing them.
#include "Bindings.h"

#include <vxunpack/QuantizeFilter.h>

#include <array>
#include <cstring>
#include <optional>

namespace vx::python {

using namespace Quillmoran;

namespace {

constexpr struct
{
    DataType type;
    const char* name;
} typeNames[] = {{UINT8, "u1"},  {SINT8, "i1"},  {UINT16, "u2"}, {SINT16, "i2"},  {UINT32, "u4"},
                 {SINT32, "i4"}, {UINT64, "u8"}, {SINT64, "i8"}, {FLOAT32, "f4"}, {FLOAT64, "f8"}};

py::str toText(const char* text, std::size_t length)
{
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(text, static_cast<py::ssize_t>(length), "backslashreplace"));
}

py::str toText(const std::string& text)
{
    return toText(text.data(), text.size());
}

// (key, description, value) of each record; a value is a str, bytes or an array.
py::list metadataOf(const PythonCloud& self)
{
    Metadata metadata;
    {
        const Released released;
        metadata = self.cloud.metadata();
    }
    py::list records;
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        const char* const description = metadata.getDescription(i);
        const auto* const value = static_cast<const char*>(metadata.getValue(i));
        const std::size_t length = metadata.getValueLength(i);
        py::object converted = py::str();
        switch (metadata.getDataType(i)) {
        case METADATA_STRING:
            converted = value ? toText(value, strnlen(value, length)) : py::str();
            break;
        case METADATA_BLOB:
            converted = py::bytes(value ? value : "", length);
            break;
        case METADATA_FLOAT64_ARRAY:
            converted =
                py::array_t<double>(static_cast<py::ssize_t>(length), reinterpret_cast<const double*>(value));
            break;
        }
        records.append(py::make_tuple(toText(metadata.getKey(i)), toText(description ? description : ""),
                                      std::move(converted)));
    }
    return records;
}

py::object toTriple(const double* values)
{
    return values ? py::object(py::make_tuple(values[0], values[1], values[2])) : py::object(py::none());
}

std::vector<ChannelTuple> toTuples(const std::vector<Channel>& channels)
{
    std::vector<ChannelTuple> tuples;
    for (const Channel& channel : channels)
        tuples.push_back(toTuple(channel));
    return tuples;
}

} // namespace

Box toBox(const BoxTuple& box)
{
    const auto [xMin, xMax, yMin, yMax, zMin, zMax] = box;
    return {xMin, xMax, yMin, yMax, zMin, zMax};
}

ChannelTuple toTuple(const Channel& channel)
{
    for (const auto& each : typeNames)
        if (each.type == channel.type)
            return {channel.name, each.name, channel.scale};
    QM_THROW(ErrorCode::InvalidArgument, "channel '%s' has no valid type", channel.name.c_str());
}

Channel toChannel(const ChannelTuple& channel)
{
    const auto& [name, type, scale] = channel;
    for (const auto& each : typeNames)
        if (type == each.name)
            return {.name = name, .type = each.type, .scale = scale};
    QM_THROW(ErrorCode::InvalidArgument, "channel '%s' has no valid type", name.c_str());
}

void bindCloud(py::module_& module)
{
    using Unlocked = py::call_guard<Released>;

    // The index of the channel that a name means; -1 if there is none.
    module.def("find_channel", [](const std::vector<std::string>& names, const std::string& name) {
        std::vector<Channel> channels;
        for (const std::string& each : names)
            channels.push_back({.name = each});
        const Channel* const found = findChannel(channels, name);
        return found ? found - channels.data() : -1;
    });

    py::class_<PythonCloud>(module, "Cloud")
        .def_static(
            "open",
            [](const std::vector<std::string>& paths, const std::string& columns, std::size_t skipLines,
               bool dropWaveforms, bool verify, std::optional<int> gpsWeek, bool allowRemote) {
                const auto warnings = std::make_shared<Warnings>();
                OpenOptions options;
                options.textFormat = columns;
                options.skipLines = skipLines;
                options.dropWaveforms = dropWaveforms;
                options.verifiesDigests = verify;
                options.gpsWeek = gpsWeek;
                options.allowsRemote = allowRemote;
                options.warning = [warnings](const std::string& message) { warnings->add(message); };
                return PythonCloud{{}, vx::open(paths, options), warnings};
            },
            Unlocked())
        .def("take_warnings", [](const PythonCloud& self) { return self.warnings->take(); })
        .def(
            "num_points", [](const PythonCloud& self) { return self.cloud.numPoints(); }, Unlocked())
        .def(
            "bounds",
            [](const PythonCloud& self) {
                const Box box = self.cloud.bounds();
                return BoxTuple(box.xMin, box.xMax, box.yMin, box.yMax, box.zMin, box.zMax);
            },
            Unlocked())
        .def("crs",
             [](const PythonCloud& self) {
                 std::string wkt;
                 {
                     const Released released;
                     wkt = self.cloud.coordinateSystem();
                 }
                 return toText(wkt);
             })
        .def(
            "channels", [](const PythonCloud& self) { return toTuples(self.cloud.channels()); }, Unlocked())
        .def("metadata", metadataOf)
        .def("scale", [](const PythonCloud& self) { return toTriple(self.cloud.source().getScale()); })
        .def("offset", [](const PythonCloud& self) { return toTriple(self.cloud.source().getOffset()); })
        .def("class_names",
             [](const PythonCloud& self) {
                 const PointSource& source = self.cloud.source();
                 py::dict names;
                 for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
                     if (const char* const name = source.getClassIdNames()[i])
                         names[py::int_(i)] = toText(name, std::strlen(name));
                 return names;
             })
        .def("files",
             [](const PythonCloud& self) {
                 std::vector<std::string> files;
                 if (const FilePointSourceManager* const opened = self.cloud.files())
                     for (std::size_t i = 0; i < opened->getNumSources(); ++i)
                         files.emplace_back(opened->getFilename(i));
                 return files;
             })
        // The estimated number of points of a query.
        .def(
            "estimate",
            [](const PythonCloud& self, const BoxTuple& box, double fraction) {
                Bounds bounds;
                std::tie(bounds.x.min, bounds.x.max, bounds.y.min, bounds.y.max, bounds.z.min, bounds.z.max) =
                    box;
                return self.cloud.source().estimatePoints(bounds, fraction);
            },
            Unlocked())
        .def(
            "with_crs",
            [](const PythonCloud& self, const std::string& system) {
                return self.with(self.cloud.withCoordinateSystem(system));
            },
            Unlocked())
        // The same with rounded coordinates.
        .def(
            "quantized",
            [](const PythonCloud& self, const std::array<double, 3>& steps) {
                const Scoped<QuantizeFilter> filter(QuantizeFilter::create());
                filter->init(&self.cloud.source(), steps.data());
                Scoped<PointSource> source = Scoped<PointSource>::retained(filter.get());
                auto files = Scoped<FilePointSourceManager>::retained(
                    const_cast<FilePointSourceManager*>(self.cloud.files()));
                return self.with(vx::Cloud(std::move(source), std::move(files)));
            },
            Unlocked());
}

} // namespace vx::python
