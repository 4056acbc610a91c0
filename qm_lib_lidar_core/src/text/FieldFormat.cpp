#include "text/FieldFormat.h"

#include "model/ChannelNames.h"
#include "text/NumberParse.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quillmoran::FieldFormat {

namespace {

struct Token
{
    char letter; // NUL if the channel has none
    const char* channel;
    DataType type;
    int bits;
};

constexpr Token tokens[] = {
    {'x', ChannelNames::x, FLOAT64, 32},
    {'y', ChannelNames::y, FLOAT64, 32},
    {'z', ChannelNames::z, FLOAT64, 32},
    {'i', ChannelNames::intensity, UINT16, 16},
    {'r', ChannelNames::returnNum, UINT8, 3},
    {'n', ChannelNames::numReturns, UINT8, 3},
    {'d', ChannelNames::scanDir, UINT8, 1},
    {'e', ChannelNames::edgeFlightLine, UINT8, 1},
    {'a', ChannelNames::scanAngle, SINT8, 8},
    {'c', ChannelNames::classId, UINT8, 8},
    {'p', ChannelNames::sourceId, UINT16, 16},
    {'u', ChannelNames::userData, UINT8, 8},
    {'t', ChannelNames::gpsTime, FLOAT64, 64},
    {'T', ChannelNames::gpsTimeAdjusted, FLOAT64, 64},
    {'R', ChannelNames::red, UINT16, 16},
    {'G', ChannelNames::green, UINT16, 16},
    {'B', ChannelNames::blue, UINT16, 16},
    {'s', ChannelNames::skip, INVALID, 0},
    {'\0', ChannelNames::classFlags, UINT8, 4},
    {'\0', ChannelNames::scannerChannel, UINT8, 2},
    {'\0', ChannelNames::nearInfrared, UINT16, 16},
};

constexpr std::string_view quantizedLetters = "xyztT";

[[noreturn]] void throwUnsupported(char letter)
{
    QM_THROW(ErrorCode::InvalidArgument, "'%c' is not a supported format token", letter);
}

const Token& findToken(char letter)
{
    const auto found = std::find_if(std::begin(tokens), std::end(tokens),
                                    [letter](const Token& token) { return token.letter == letter; });
    if (letter == '\0' || found == std::end(tokens))
        throwUnsupported(letter);
    return *found;
}

ChannelInfo makeChannel(const Token& token)
{
    ChannelInfo channel;
    channel.init(token.channel, token.type, token.bits, 0.0);
    return channel;
}

ChannelInfo makeChannel(std::string_view name, DataType type)
{
    ChannelInfo channel;
    channel.init(std::string(name).c_str(), type, 0, 0.0);
    return channel;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isWhiteSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Calls visit(part) for each part of the text between two separators.
template <class Visit>
void forEachPart(std::string_view text, char separator, Visit visit)
{
    for (;;) {
        const std::size_t end = text.find(separator);
        visit(trimmed(text.substr(0, end)));
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

// Splits a list; an empty entry is an error.
template <class Visit>
void forEachName(std::string_view list, Visit visit)
{
    forEachPart(list, ',', [&](std::string_view name) {
        if (name.empty())
            QM_THROW(ErrorCode::InvalidArgument, "a name is missing in '%s'", std::string(list).c_str());
        visit(name);
    });
}

struct Listed
{
    ChannelInfo channel;
    bool hasType = false;
};

Listed parseListed(std::string_view entry)
{
    if (const ChannelInfo* const standard = FieldFormat::findStandard(entry))
        return {*standard};
    if (entry.size() == 1)
        return {makeChannel(findToken(entry[0]))};
    const std::size_t colon = entry.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        const std::string name(entry);
        QM_THROW(ErrorCode::InvalidArgument,
                 "'%s' is not a standard channel; add its type, as in '%s:FLOAT64'", name.c_str(),
                 name.c_str());
    }
    const std::string_view name = trimmed(entry.substr(0, colon));
    const std::string type(trimmed(entry.substr(colon + 1)));
    const DataType known = DataTypeUtils::toDataType(type.c_str());
    if (known == INVALID)
        QM_THROW(ErrorCode::InvalidArgument, "'%s' is not a data type", type.c_str());
    const ChannelInfo* const standard = FieldFormat::findStandard(name);
    return {makeChannel(standard ? standard->getName() : name, known), true};
}

// Whether only the extended LAS formats have the channel.
bool isExtended(const ChannelInfo& channel)
{
    return channel.isNamed(ChannelNames::classFlags) || channel.isNamed(ChannelNames::scannerChannel) ||
           channel.isNamed(ChannelNames::nearInfrared);
}

// Changes a channel to its form in the extended LAS formats.
void widen(ChannelInfo& channel)
{
    if (channel.isNamed(ChannelNames::returnNum) || channel.isNamed(ChannelNames::numReturns))
        channel.init(channel.getName(), UINT8, 4, 0.0);
    else if (channel.isNamed(ChannelNames::scanAngle))
        channel.init(channel.getName(), SINT16, 16, 0.0);
}

PointInfo makeLayout(std::vector<Listed>& columns)
{
    const bool anyExtended = std::any_of(columns.begin(), columns.end(),
                                         [](const Listed& column) { return isExtended(column.channel); });
    PointInfo layout;
    for (Listed& column : columns) {
        if (anyExtended && !column.hasType)
            widen(column.channel);
        layout.append(column.channel);
    }
    return layout;
}

bool isList(const char* text)
{
    return text && std::strchr(text, ',');
}

// One group: letters, "@" and a value.
void applyGroup(const std::string& group, PointInfo& layout)
{
    const std::size_t at = group.find('@');
    if (at == std::string::npos)
        QM_THROW(ErrorCode::InvalidArgument, "the quantization value is missing for '%s'", group.c_str());
    const char* const text = group.c_str() + at + 1;
    double value = 0;
    if (parseDouble(text, group.c_str() + group.size(), value) == text)
        QM_THROW(ErrorCode::InvalidArgument, "could not parse quantization for '%s'", group.c_str());
    if (value == 0)
        QM_THROW(ErrorCode::InvalidArgument, "quantization for '%s' can not be zero", group.c_str());
    for (const char letter : group.substr(0, at)) {
        if (quantizedLetters.find(letter) == std::string_view::npos)
            throwUnsupported(letter);
        if (ChannelInfo* channel = layout.getChannel(findToken(letter).channel))
            channel->setQuantization(value);
    }
}

} // namespace

void parse(const char* format, PointInfo& out)
{
    if (!format)
        QM_THROW(ErrorCode::InvalidArgument, "format string not given");
    PointInfo layout;
    for (; *format != '\0'; ++format)
        layout.append(makeChannel(findToken(*format)));
    out = std::move(layout);
}

void parse(const char* format, PointInfo& out, const PointInfo& known)
{
    PointInfo layout;
    parse(format, layout);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        ChannelInfo& channel = layout.getChannel(i);
        const ChannelInfo* const same = known.getChannel(channel.getName());
        if (!same)
            QM_THROW(ErrorCode::InvalidArgument, "'%s' is not in the input channel mapping",
                     channel.getName());
        channel.init(*same);
    }
    out = std::move(layout);
}

const ChannelInfo* findStandard(std::string_view name)
{
    static const PointInfo standard = [] {
        PointInfo channels;
        for (const Token& token : tokens)
            channels.append(makeChannel(token));
        return channels;
    }();
    return ChannelNames::resolve(std::string(name), standard);
}

void parseColumns(const char* text, PointInfo& out)
{
    if (!isList(text))
        return parse(text, out);
    std::vector<Listed> columns;
    forEachName(text, [&columns](std::string_view entry) { columns.push_back(parseListed(entry)); });
    out = makeLayout(columns);
}

void parseColumns(const char* text, PointInfo& out, const PointInfo& known)
{
    if (!isList(text))
        return parse(text, out, known);
    parseNames(text, out, known);
}

void parseNames(const char* text, PointInfo& out, const PointInfo& known)
{
    PointInfo layout;
    forEachName(text, [&](std::string_view name) {
        layout.append(ChannelNames::require(std::string(name), known, "the input"));
    });
    out = std::move(layout);
}

bool parseHeader(std::string_view line, PointInfo& out)
{
    line = trimmed(line);
    if (line.empty() || line[0] != '#')
        return false;
    std::vector<Listed> columns;
    std::set<std::string_view> seen;
    forEachPart(line.substr(1), ' ', [&](std::string_view name) {
        if (name.empty())
            return;
        const bool isNew = seen.insert(name).second;
        const ChannelInfo* const standard = findStandard(isNew ? name : ChannelNames::skip);
        const bool isSame = standard && (!isNew || name == standard->getName());
        columns.push_back({isSame ? *standard : makeChannel(name, FLOAT64)});
    });
    PointInfo layout = makeLayout(columns);
    if (!layout.hasValidXYZ())
        return false;
    out = std::move(layout);
    return true;
}

void parseQuantization(const char* text, PointInfo& layout)
{
    if (!text)
        QM_THROW(ErrorCode::InvalidArgument, "quantizations not given");
    PointInfo quantized = layout;
    for (const char* group = text;; ++group) {
        const std::size_t length = std::strcspn(group, ",");
        applyGroup(std::string(group, length), quantized);
        group += length;
        if (*group == '\0')
            break;
    }
    layout = std::move(quantized);
}

} // namespace Quillmoran::FieldFormat
