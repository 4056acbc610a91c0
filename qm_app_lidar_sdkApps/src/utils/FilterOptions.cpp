#include "cli/QMCmdLine.h"
#include "filters/SimpleFilterFilter.h"
#include "platform/Base.h"
#include "utils/Utils.h"

#include <charconv>
#include <cstring>
#include <string>

namespace Quillmoran::Utils {

namespace {

struct ValueFilter
{
    std::string channel;
    int value = 0;
    bool include = true;
};

[[noreturn]] void throwBadFilter(const char* text)
{
    QM_THROW(-1, "bad filter '%s', the format is <channel name>,<integer value>,include|exclude", text);
}

// From the end, since a channel's name may hold a comma.
ValueFilter parseFilter(const char* text)
{
    const std::string whole(text);
    const std::size_t modeComma = whole.rfind(',');
    if (modeComma == std::string::npos || modeComma == 0)
        throwBadFilter(text);
    const std::size_t valueComma = whole.rfind(',', modeComma - 1);
    if (valueComma == std::string::npos || valueComma == 0)
        throwBadFilter(text);

    ValueFilter filter;
    filter.channel = whole.substr(0, valueComma);
    const char* const end = text + modeComma;
    const auto [rest, error] = std::from_chars(text + valueComma + 1, end, filter.value);
    const std::string mode = whole.substr(modeComma + 1);
    filter.include = mode == "include";
    if (error != std::errc() || rest != end || (!filter.include && mode != "exclude"))
        throwBadFilter(text);
    return filter;
}

} // namespace

void addFilterOptions(QMCmdLine& cmdLine)
{
    cmdLine.addString(
        "filter", nullptr,
        "Filter points by a given channel.  Format: <channel name>,<integer value>,include|exclude", false);
}

Scoped<PointSource> handleFilterOptions(const QMCmdLine& cmdLine, const Scoped<PointSource>& source)
{
    if (!cmdLine.isPresent("filter"))
        return source;
    const ValueFilter wanted = parseFilter(cmdLine.getString("filter"));
    Scoped<SimpleFilterFilter> filter(SimpleFilterFilter::create());
    filter->init(source.get(), wanted.channel.c_str(), wanted.include);
    filter->addValue(wanted.value);
    return Scoped<PointSource>(filter.detach());
}

} // namespace Quillmoran::Utils
