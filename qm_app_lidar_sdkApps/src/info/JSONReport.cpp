#include "info/JSONReport.h"

#include "index/DiskRTree.h"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

namespace Quillmoran {

namespace {

using JSON = nlohmann::ordered_json; // keeps the order of keys

// The library writes infinities and NaNs as null.

JSON textOrNull(const char* text)
{
    return text ? JSON(text) : JSON();
}

JSON triple(const double* values)
{
    return values ? JSON::array({values[0] + 0.0, values[1] + 0.0, values[2] + 0.0}) : JSON(); // no -0
}

// Null without points and for empty boxes.
JSON describeBounds(const PointSource& source)
{
    const Bounds& bounds = source.getBounds();
    if (source.getNumPoints() == 0 || bounds.x.min > bounds.x.max || bounds.y.min > bounds.y.max ||
        bounds.z.min > bounds.z.max)
        return {};
    const double min[] = {bounds.x.min, bounds.y.min, bounds.z.min};
    const double max[] = {bounds.x.max, bounds.y.max, bounds.z.max};
    return {{"min", triple(min)}, {"max", triple(max)}};
}

JSON describeChannels(const PointSource& source)
{
    JSON channels = JSON::array();
    for (std::size_t i = 0; i < source.getNumChannels(); ++i) {
        const ChannelInfo& channel = source.getChannel(i);
        channels.push_back(JSON{{"name", channel.getName()},
                                {"type", DataTypeUtils::toString(channel.getDataType())},
                                {"bits", channel.getBits()},
                                {"quantization", channel.getQuantization()}});
    }
    return channels;
}

JSON describeClassNames(const PointSource& source)
{
    JSON names = JSON::array();
    for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
        names.push_back(textOrNull(source.getClassIdNames()[i]));
    return names;
}

const char* nameOf(MetadataDataType type)
{
    return type == METADATA_STRING          ? "string"
           : type == METADATA_BLOB          ? "blob"
           : type == METADATA_FLOAT64_ARRAY ? "numbers"
                                            : "unknown"; // files may contain any code
}

JSON describeValue(const Metadata& metadata, std::size_t index)
{
    const void* value = metadata.getValue(index);
    if (metadata.getDataType(index) == METADATA_STRING)
        return value ? JSON(static_cast<const char*>(value)) : JSON("");
    if (metadata.getDataType(index) != METADATA_FLOAT64_ARRAY)
        return {};
    JSON numbers = JSON::array();
    for (std::size_t i = 0; i < metadata.getValueLength(index); ++i) {
        double number;
        std::memcpy(&number, static_cast<const char*>(value) + i * sizeof number, sizeof number);
        numbers.push_back(number);
    }
    return numbers;
}

JSON describeMetadata(const Metadata& metadata)
{
    JSON records = JSON::array();
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        records.push_back(JSON{{"key", metadata.getKey(i)},
                               {"description", textOrNull(metadata.getDescription(i))},
                               {"type", nameOf(metadata.getDataType(i))},
                               {"length", metadata.getValueLength(i)},
                               {"value", describeValue(metadata, i)}});
    }
    return records;
}

JSON describeRecord(const WaveletDecoderChannelInfo& record, const CompressedSize::Channel& size)
{
    const bool isReal = TransformUtils::isFloatingPoint(record.getTransformType());
    const auto low = record.getMinimum();
    const auto high = record.getMaximum();
    // A channel without samples has minimum > maximum.
    const bool hasRange = isReal ? low.real <= high.real : low.integer <= high.integer;
    return {{"name", record.getName()},
            {"type", DataTypeUtils::toString(record.getDataType())},
            {"kernelType", DataTypeUtils::toString(record.getKernelDataType())},
            {"bits", record.getBits()},
            {"min", !hasRange ? JSON()
                    : isReal  ? JSON(low.real)
                              : JSON(low.integer)},
            {"max", !hasRange ? JSON()
                    : isReal  ? JSON(high.real)
                              : JSON(high.integer)},
            {"scale", record.getScale()},
            {"offset", record.getOffset() + 0.0}, // no -0
            {"transform", static_cast<unsigned>(record.getTransformType())},
            {"transformName", TransformUtils::toString(record.getTransformType())},
            {"subblockSize", record.getSubblockSize()},
            {"bytes", size.bytes()},
            {"headerBytes", size.interleaved ? JSON() : JSON(size.headerBytes)},
            {"dataBytes", size.interleaved ? JSON() : JSON(size.dataBytes)}};
}

JSON describeIndex(const WaveletDecoderInfo& info)
{
    return {{"kind", dynamic_cast<const DiskRTree*>(&info.getIndex()) ? "tree" : "list"},
            {"numEntries", info.getIndex().getCount()},
            {"pointsPerEntry", info.getPointsPerEntry()},
            {"bytes", info.getIndexLength()}};
}

JSON describeCompression(const WaveletDecoderInfo& info, const CompressedSize& size)
{
    JSON levels = JSON::array();
    for (std::uint32_t level = 0; level < info.getNumLevels(); ++level)
        levels.push_back(JSON{{"numPoints", info.getNumSamples(level)}, {"bytes", size.levelBytes[level]}});
    JSON records = JSON::array();
    for (std::size_t i = 0; i < info.getChannels().size(); ++i)
        records.push_back(describeRecord(info.getChannels()[i], size.channels[i]));
    return {{"version", info.getFileVersion() & 0xFF},
            {"index", describeIndex(info)},
            {"levels", std::move(levels)},
            {"records", std::move(records)}};
}

void addDescription(JSON& json, const SourceDescription& description)
{
    const PointSource& source = *description.source;
    const bool isCounted = source.getNumPoints() != PointSource::unknownNumPoints;
    json["type"] = description.typeName;
    json["format"] = textOrNull(description.format);
    json["fileBytes"] = description.fileBytes ? JSON(*description.fileBytes) : JSON();
    json["hasWaveforms"] = description.hasWaveforms;
    json["numPoints"] = isCounted ? JSON(source.getNumPoints()) : JSON();
    json["bounds"] = describeBounds(source);
    json["scale"] = triple(source.getScale());
    json["offset"] = triple(source.getOffset());
    json["channels"] = describeChannels(source);
    json["classNames"] = describeClassNames(source);
    json["metadata"] = describeMetadata(description.metadata);
    json["wkt"] = textOrNull(source.getWKT());
    if (description.compression)
        json["compression"] = describeCompression(*description.compression, description.compressedSize);
}

// Edges of integers are written as integers, as far as numbers hold them exactly.
JSON describeHistogram(const ChannelStatistics& channel)
{
    const HistogramBins bins = channel.getBins();
    constexpr double exact = 9007199254740992; // 2^53
    JSON edges = JSON::array();
    for (const double edge : bins.edges) {
        if (channel.hasIntegers() && std::abs(edge) <= exact)
            edges.push_back(static_cast<std::int64_t>(edge));
        else
            edges.push_back(edge);
    }
    return {{"edges", std::move(edges)}, {"counts", bins.counts}};
}

JSON describeStatistics(const ChannelStatistics& channel, bool isSampled)
{
    const auto toNumber = [](auto number) { return JSON(number); };
    const bool hasRange = channel.getCount() != 0;
    JSON json = {{"name", channel.getName()},
                 {"count", channel.getCount()},
                 {"notFinite", channel.getNumNotFinite()},
                 {"min", hasRange ? std::visit(toNumber, channel.getMinimum()) : JSON()},
                 {"max", hasRange ? std::visit(toNumber, channel.getMaximum()) : JSON()},
                 {"mean", hasRange ? JSON(channel.getMean()) : JSON()},
                 {"exactRange", !isSampled || channel.isRangeKnown()},
                 {"histogram", describeHistogram(channel)}};
    const std::vector<std::uint64_t>& codes = channel.getCodeCounts();
    if (codes.empty())
        return json;
    JSON counts = JSON::object();
    for (std::size_t code = 0; code < codes.size(); ++code)
        if (codes[code] != 0)
            counts[std::to_string(code)] = codes[code];
    json["counts"] = std::move(counts);
    return json;
}

} // namespace

std::string toJSON(const FileReport& report)
{
    JSON json;
    json["file"] = report.fileName;
    json["sound"] = report.problems.empty();
    if (!report.problems.empty()) {
        json["error"] = report.problems.front();
        json["problems"] = report.problems;
    }
    if (report.description)
        addDescription(json, *report.description);
    if (report.check)
        json["check"] = {{"numPoints", report.check->numPoints},
                         {"numQueries", report.check->numQueries},
                         {"numDigests", report.check->numDigests}};
    const bool isSampled = report.samplingInterval > 1;
    if (!report.statistics.empty()) {
        json["estimated"] = isSampled;
        json["fraction"] = 1 / static_cast<double>(report.samplingInterval);
    }
    for (const ChannelStatistics& channel : report.statistics)
        json["statistics"].push_back(describeStatistics(channel, isSampled));
    // ASCII only, so that no control character reaches a terminal.
    return json.dump(2, ' ', true, JSON::error_handler_t::replace);
}

} // namespace Quillmoran
