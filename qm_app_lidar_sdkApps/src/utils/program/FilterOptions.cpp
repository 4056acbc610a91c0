#include "cli/QMCmdLine.h"
#include "model/ChannelNames.h"
#include "utils/program/Utils.h"
#include "utils/sets/Make.h"
#include <vxunpack/Base.h>
#include <vxunpack/SimpleFilterFilter.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <strings.h>
#include <type_traits>

namespace Quillmoran::Utils {

namespace {

struct ValueFilter
{
    std::string channel;
    std::int64_t value = 0;
    bool include = true;
};

// Parses from the end, since the name of a channel may contain a comma.
ValueFilter parseFilter(const std::string& text)
{
    ValueFilter filter;
    const std::size_t modeComma = text.rfind(',');
    const std::size_t valueComma = text.rfind(',', modeComma - 1);
    const std::string mode = text.substr(modeComma + 1);
    filter.include = strcasecmp(mode.c_str(), "include") == 0;
    filter.channel = text.substr(0, valueComma);
    bool isNumber = false;
    if (modeComma != std::string::npos && valueComma < modeComma && valueComma != 0) {
        const char* const end = text.data() + modeComma;
        const auto [rest, error] = std::from_chars(text.data() + valueComma + 1, end, filter.value);
        isNumber = error == std::errc() && rest == end;
    }
    if (!isNumber || (!filter.include && strcasecmp(mode.c_str(), "exclude") != 0))
        QM_THROW(ErrorCode::General,
                 "bad filter '%s', the format is <channel name>,<integer value>,include|exclude",
                 text.c_str());
    return filter;
}

// Values beyond the type of the channel would be converted and select other points.
void checkValue(const ChannelInfo& channel, std::int64_t value)
{
    constexpr std::size_t largestSample = 4; // bytes, of the channels that SimpleFilterFilter reads
    const DataType type = channel.getDataType();
    if (!DataTypeUtils::isKnown(type) || DataTypeUtils::isFloat(type) ||
        DataTypeUtils::getSize(type) > largestSample)
        QM_THROW(ErrorCode::General,
                 "-filter needs a channel of integers of at most 32 bits, channel '%s' is %s",
                 channel.getName(), DataTypeUtils::toString(type));
    visitDataType(type, [&](auto zero) {
        using T = decltype(zero);
        if constexpr (std::is_integral_v<T> && sizeof(T) <= largestSample)
            if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max())
                QM_THROW(ErrorCode::General,
                         "the value %lld of -filter is out of the range of channel '%s' (%s)",
                         static_cast<long long>(value), channel.getName(), DataTypeUtils::toString(type));
    });
}

Scoped<PointSource> applyFilter(const ValueFilter& wanted, PointSource& source)
{
    const ChannelInfo& channel = ChannelNames::require(wanted.channel, source.getPointInfo());
    checkValue(channel, wanted.value);
    auto filter = make<SimpleFilterFilter>(&source, channel.getName(), wanted.include);
    filter->addValue(static_cast<int>(wanted.value)); // converted back to the channel's type
    return Scoped<PointSource>(filter.detach());
}

} // namespace

void addFilterOptions(QMCmdLine& cmdLine)
{
    cmdLine.addStringArray("filter", nullptr,
                           "Filter points by a given channel.  Format: <channel name>,<integer "
                           "value>,include|exclude.  May be repeated; "
                           "a point is kept if it passes all filters",
                           false, -1);
}

Scoped<PointSource> handleFilterOptions(const QMCmdLine& cmdLine, const Scoped<PointSource>& source)
{
    Scoped<PointSource> filtered = source;
    for (const std::string& text : getStrings(cmdLine, "filter"))
        filtered = applyFilter(parseFilter(text), *filtered);
    return filtered;
}

} // namespace Quillmoran::Utils
