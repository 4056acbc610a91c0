#include "diff/DiffJSON.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace Quillmoran {

namespace {

using JSON = nlohmann::ordered_json; // keeps the order of keys; writes infinities and NaNs as null

JSON toNumber(const Sample& sample)
{
    return std::visit([](auto value) { return JSON(value); }, sample);
}

// Null without points; no -0.
JSON rangeToJSON(const Bounds::Range& range)
{
    return range.min > range.max ? JSON() : JSON::array({range.min + 0.0, range.max + 0.0});
}

JSON typeOrNull(const std::optional<DataType>& type)
{
    return type ? JSON(DataTypeUtils::toString(*type)) : JSON();
}

JSON textOrNull(const std::optional<std::string>& text)
{
    return text ? JSON(*text) : JSON();
}

const char* nameOf(DiffReport::Systems systems)
{
    using Systems = DiffReport::Systems;
    return systems == Systems::Same        ? "same"
           : systems == Systems::Different ? "different"
           : systems == Systems::OnlyA     ? "onlyA"
                                           : "onlyB";
}

JSON cloudToJSON(const DiffReport::Cloud& cloud)
{
    return {{"file", cloud.name},
            {"numPoints", cloud.numPoints},
            {"bounds",
             {{"x", rangeToJSON(cloud.bounds.x)},
              {"y", rangeToJSON(cloud.bounds.y)},
              {"z", rangeToJSON(cloud.bounds.z)}}}};
}

template <class Elements, class Describe>
JSON listToJSON(const Elements& elements, Describe describe)
{
    JSON list = JSON::array();
    for (const auto& element : elements)
        list.push_back(describe(element));
    return list;
}

JSON samplesToJSON(const DiffReport::Samples& samples)
{
    return {{"name", samples.name},
            {"numDifferent", samples.numDifferent},
            {"largestDifference", toNumber(samples.largest)},
            {"first", listToJSON(samples.first, [](const DiffReport::Samples::Pair& pair) {
                 return JSON{{"point", pair.point}, {"a", toNumber(pair.a)}, {"b", toNumber(pair.b)}};
             })}};
}

JSON surplusToJSON(const DiffReport::Surplus& surplus)
{
    return {{"numPoints", surplus.numPoints},
            {"first", listToJSON(surplus.first, [](const DiffReport::Surplus::Point& point) {
                 return JSON{{"point", point.index}, {"samples", listToJSON(point.samples, toNumber)}};
             })}};
}

} // namespace

std::string toJSON(const DiffReport& report)
{
    JSON json = {{"equal", report.isEqual()},
                 {"a", cloudToJSON(report.a)},
                 {"b", cloudToJSON(report.b)},
                 {"channels", report.channels}};
    json["layout"] = listToJSON(report.layout, [](const DiffReport::Channel& channel) {
        return JSON{{"name", channel.name}, {"a", typeOrNull(channel.a)}, {"b", typeOrNull(channel.b)}};
    });
    json["bounds"] = listToJSON(report.bounds, [](const DiffReport::Axis& axis) { return JSON(axis.name); });
    json["coordinateSystem"] = nameOf(report.coordinateSystems);
    json["classNames"] = listToJSON(report.classNames, [](const DiffReport::ClassName& name) {
        return JSON{{"class", name.code}, {"a", textOrNull(name.a)}, {"b", textOrNull(name.b)}};
    });
    json["metadata"] = listToJSON(report.metadata, [](const DiffReport::Record& record) {
        return JSON{{"key", record.key}, {"a", record.isInA}, {"b", record.isInB}};
    });
    if (report.isUnordered) {
        json["onlyA"] = surplusToJSON(report.onlyA);
        json["onlyB"] = surplusToJSON(report.onlyB);
    } else {
        json["numCompared"] = std::min(report.a.numPoints, report.b.numPoints);
        json["samples"] = listToJSON(report.samples, samplesToJSON);
    }
    json["notes"] = report.notes;
    // ASCII only, so that no control character reaches a terminal.
    return json.dump(2, ' ', true, JSON::error_handler_t::replace) + '\n';
}

} // namespace Quillmoran
