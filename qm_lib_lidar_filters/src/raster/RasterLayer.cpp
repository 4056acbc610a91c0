#include <vxunpack/RasterLayer.h>

#include <vxunpack/Base.h>

#include <charconv>
#include <string_view>
#include <utility>

namespace Quillmoran {

namespace {

using Statistic = RasterLayer::Statistic;
using Returns = RasterLayer::Returns;

constexpr std::pair<std::string_view, Statistic> statistics[] = {{"count", Statistic::Count},
                                                                 {"min", Statistic::Minimum},
                                                                 {"max", Statistic::Maximum},
                                                                 {"mean", Statistic::Mean}};
constexpr std::string_view classPrefix = "class=";

// Cuts the text before the separator, or all of it, off the rest.
std::string_view takeUpTo(std::string_view& rest, char separator)
{
    const std::size_t at = rest.find(separator);
    const std::string_view part = rest.substr(0, at);
    rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + 1);
    return part;
}

bool parseClasses(std::string_view list, std::vector<int>& classes)
{
    if (list.empty() || list.back() == ',')
        return false;
    while (!list.empty()) {
        const std::string_view number = takeUpTo(list, ',');
        int value = 0;
        const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
        if (error != std::errc() || end != number.data() + number.size() || value < 0 || value > UINT8_MAX)
            return false;
        classes.push_back(value);
    }
    return true;
}

bool parseFilter(std::string_view filter, RasterLayer& layer)
{
    if (filter == "first" || filter == "last") {
        layer.returns = filter == "first" ? Returns::First : Returns::Last;
        return true;
    }
    return filter.substr(0, classPrefix.size()) == classPrefix &&
           parseClasses(filter.substr(classPrefix.size()), layer.classes);
}

bool parseLayer(std::string_view text, RasterLayer& layer)
{
    if (text == "ground") {
        layer = {Statistic::Mean, "Z", Returns::Last, {2}, {}};
        return true;
    }
    if (text.empty() || text.back() == '@')
        return false;
    std::string_view filters = text;
    std::string_view channel = takeUpTo(filters, '@');
    const bool hasChannel = channel.find(':') != std::string_view::npos;
    const std::string_view statistic = takeUpTo(channel, ':');
    bool isKnown = false;
    for (const auto& [name, value] : statistics)
        if (statistic == name) {
            layer.statistic = value;
            isKnown = true;
        }
    if (!isKnown || (hasChannel && (channel.empty() || layer.statistic == Statistic::Count)))
        return false;
    if (hasChannel)
        layer.channel = channel;
    while (!filters.empty())
        if (!parseFilter(takeUpTo(filters, '@'), layer))
            return false;
    return true;
}

} // namespace

RasterLayer RasterLayer::parse(const std::string& text)
{
    RasterLayer layer;
    if (!parseLayer(text, layer))
        QM_THROW(
            ErrorCode::InvalidArgument,
            "'%s' is not a layer of a raster: count, min, max, mean or ground, then :CHANNEL, @first, @last "
            "or @class=N,...",
            text.c_str());
    layer.name = text;
    return layer;
}

std::string RasterLayer::toString() const
{
    std::string text;
    for (const auto& [label, value] : statistics)
        if (statistic == value)
            text = label;
    if (statistic != Statistic::Count)
        text += ':' + channel;
    if (returns != Returns::All)
        text += returns == Returns::First ? "@first" : "@last";
    for (std::size_t i = 0; i < classes.size(); ++i)
        text += (i == 0 ? '@' + std::string(classPrefix) : ",") + std::to_string(classes[i]);
    return text;
}

} // namespace Quillmoran
