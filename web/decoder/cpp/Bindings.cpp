// What JavaScript calls. Functions of the class Session return an object: { missing: [begin, end, ...] } if
// bytes must be added first, { error: { code, message } }, or the result.
#include "Session.h"

#include <vxunpack/Base.h>

#include <cerrno>
#include <emscripten/bind.h>
#include <initializer_list>
#include <new>
#include <string>
#include <vector>

namespace Quillmoran {

namespace {

using emscripten::val;

val makeError(int code, const char* message)
{
    val error = val::object();
    error.set("code", code);
    error.set("message", std::string(message));
    val result = val::object();
    result.set("error", error);
    return result;
}

template <class Function>
val answer(const Function& function)
{
    try {
        return function();
    } catch (const BytesMissing& missing) {
        val ranges = val::array();
        for (const IO::Range& range : missing.ranges) {
            ranges.call<void>("push", static_cast<double>(range.offset));
            ranges.call<void>("push", static_cast<double>(range.offset + range.length));
        }
        val result = val::object();
        result.set("missing", ranges);
        return result;
    } catch (const Error& error) {
        return makeError(error.error(), error.what());
    } catch (const std::bad_alloc&) {
        return makeError(ENOMEM, "not enough memory");
    } catch (const std::exception& error) { // std::length_error of a vector, which has no such size
        return makeError(ENOMEM, error.what());
    }
}

val toText(const char* text)
{
    return text ? val(std::string(text)) : val::null();
}

val toArray(std::initializer_list<double> values)
{
    val array = val::array();
    for (const double value : values)
        array.call<void>("push", value);
    return array;
}

val describe(const Bounds& bounds)
{
    val box = val::object();
    box.set("min", toArray({bounds.x.min, bounds.y.min, bounds.z.min}));
    box.set("max", toArray({bounds.x.max, bounds.y.max, bounds.z.max}));
    return box;
}

// A copy of values, which JavaScript owns.
template <class T>
val copyArray(const void* data, std::size_t count)
{
    return val(emscripten::typed_memory_view(count, static_cast<const T*>(data))).template call<val>("slice");
}

// "uint8" and so on.
const char* nameOf(DataType type)
{
    switch (type) {
    case UINT8:
        return "uint8";
    case SINT8:
        return "int8";
    case UINT16:
        return "uint16";
    case SINT16:
        return "int16";
    case UINT32:
        return "uint32";
    case SINT32:
        return "int32";
    case UINT64:
        return "uint64";
    case SINT64:
        return "int64";
    case FLOAT32:
        return "float32";
    default:
        return "float64";
    }
}

val describeChannels(const PointInfo& layout)
{
    val channels = val::array();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& info = layout.getChannel(i);
        val channel = val::object();
        channel.set("name", toText(info.getName() ? info.getName() : ""));
        channel.set("type", toText(nameOf(info.getDataType())));
        channel.set("bits", info.getBits());
        channel.set("quantization", info.getQuantization());
        channels.call<void>("push", channel);
    }
    return channels;
}

val describeMetadata(const Metadata& metadata)
{
    val records = val::array();
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        const char* key = nullptr;
        const char* description = nullptr;
        MetadataDataType type{};
        const void* value = nullptr;
        std::size_t length = 0;
        metadata.get(i, key, description, type, value, length);
        val record = val::object();
        record.set("name", toText(key));
        record.set("description", toText(description ? description : ""));
        if (type == METADATA_STRING)
            record.set("value", toText(value ? static_cast<const char*>(value) : ""));
        else if (type == METADATA_FLOAT64_ARRAY)
            record.set("value", val::global("Array").call<val>("from", copyArray<double>(value, length)));
        else
            record.set("value", copyArray<std::uint8_t>(value, length));
        records.call<void>("push", record);
    }
    return records;
}

Bounds toBounds(const val& box)
{
    if (box.isNull())
        return Bounds::Huge();
    const auto range = [&box](int axis) {
        return Bounds::Range{box["min"][axis].as<double>(), box["max"][axis].as<double>()};
    };
    return {range(0), range(1), range(2)};
}

val open(Session& session)
{
    return answer([&] {
        session.open();
        const VX7PointReader& reader = session.getReader();
        val classNames = val::array();
        for (std::size_t i = 0; i < reader.getNumClassIdNames(); ++i)
            classNames.call<void>("push", toText(reader.getClassIdNames()[i]));
        val result = val::object();
        result.set("format", toText(reader.getFileFormatString()));
        result.set("numPoints", static_cast<double>(reader.getNumPoints()));
        result.set("numLevels", session.getNumLevels());
        result.set("bounds", describe(reader.getBounds()));
        result.set("channels", describeChannels(reader.getPointInfo()));
        result.set("wkt", toText(reader.getWKT()));
        result.set("classNames", classNames);
        result.set("metadata", describeMetadata(session.getMetadata()));
        const std::string& failure = session.getMetadataFailure();
        result.set("metadataFailure", failure.empty() ? val::null() : val(failure));
        return result;
    });
}

// The view is valid until the next call.
val add(Session& session, double offset, double length)
{
    return answer([&] {
        const std::span<std::uint8_t> bytes =
            session.getFile().add(static_cast<std::int64_t>(offset), static_cast<std::size_t>(length));
        return val(emscripten::typed_memory_view(bytes.size(), bytes.data()));
    });
}

void drop(Session& session)
{
    session.getFile().drop();
}

val findRanges(const Session& session, unsigned level, const val& box)
{
    return answer([&] {
        val ranges = val::array();
        for (const Session::PointRange& range : session.findRanges(level, toBounds(box))) {
            ranges.call<void>("push", static_cast<double>(range.start));
            ranges.call<void>("push", static_cast<double>(range.length));
        }
        return ranges;
    });
}

val decode(Session& session, unsigned level, const val& ranges, const val& box, const val& indices,
           bool verifies)
{
    return answer([&] {
        const auto numbers = emscripten::convertJSArrayToNumberVector<double>(ranges);
        std::vector<Session::PointRange> chosen;
        for (std::size_t i = 0; i + 1 < numbers.size(); i += 2)
            chosen.push_back(
                {static_cast<std::int64_t>(numbers[i]), static_cast<std::int64_t>(numbers[i + 1])});
        const std::size_t count =
            session.decode(level, chosen, toBounds(box),
                           emscripten::convertJSArrayToNumberVector<std::size_t>(indices), verifies);
        const PointData& points = session.getPoints();
        val channels = val::array();
        for (std::size_t i = 0; i < points.getNumChannels(); ++i) {
            const ChannelData& channel = points.getChannel(i);
            // There are no memory views of 64-bit integers, so the loader gives the bytes their type.
            const std::size_t bytes = count * DataTypeUtils::getSize(channel.getDataType());
            val samples = val::object();
            samples.set("type", toText(nameOf(channel.getDataType())));
            samples.set("bytes", copyArray<std::uint8_t>(channel.getData(), bytes));
            channels.call<void>("push", samples);
        }
        val result = val::object();
        result.set("count", static_cast<double>(count));
        result.set("channels", channels);
        return result;
    });
}

} // namespace

EMSCRIPTEN_BINDINGS(decoder)
{
    emscripten::class_<Session>("Session")
        .constructor(emscripten::optional_override(
                         [](double size) { return new Session(static_cast<std::int64_t>(size)); }),
                     emscripten::allow_raw_pointers())
        .function("open", &open)
        .function("add", &add)
        .function("drop", &drop)
        .function("findRanges", &findRanges)
        .function("decode", &decode);
}

} // namespace Quillmoran
