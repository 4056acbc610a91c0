#include "text/FieldFormat.h"

#include "model/ChannelNames.h"
#include "platform/Base.h"
#include "text/NumberParse.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace Quillmoran::FieldFormat {

namespace {

struct Token
{
    char letter;
    const char* channel;
    DataType type;
    int bits;
};

constexpr Token tokens[] = {
    {'x', ChannelNames::x, FLOAT64, 32},       {'y', ChannelNames::y, FLOAT64, 32},
    {'z', ChannelNames::z, FLOAT64, 32},       {'i', ChannelNames::intensity, UINT16, 16},
    {'r', ChannelNames::returnNum, UINT8, 3},  {'n', ChannelNames::numReturns, UINT8, 3},
    {'d', ChannelNames::scanDir, UINT8, 1},    {'e', ChannelNames::edgeFlightLine, UINT8, 1},
    {'a', ChannelNames::scanAngle, SINT8, 8},  {'c', ChannelNames::classId, UINT8, 8},
    {'p', ChannelNames::sourceId, UINT16, 16}, {'u', ChannelNames::userData, UINT8, 8},
    {'t', ChannelNames::gpsTime, FLOAT64, 64}, {'T', ChannelNames::gpsTimeAdjusted, FLOAT64, 64},
    {'R', ChannelNames::red, UINT16, 16},      {'G', ChannelNames::green, UINT16, 16},
    {'B', ChannelNames::blue, UINT16, 16},     {'s', ChannelNames::skip, INVALID, 0},
};

constexpr std::string_view quantizedLetters = "xyztT";

[[noreturn]] void throwUnsupported(char letter)
{
    QM_THROW(40007, "'%c' is not a supported format token", letter);
}

const Token& findToken(char letter)
{
    const auto found = std::find_if(std::begin(tokens), std::end(tokens),
                                    [letter](const Token& token) { return token.letter == letter; });
    if (found == std::end(tokens))
        throwUnsupported(letter);
    return *found;
}

// One group: letters, "@" and a value.
void applyGroup(const std::string& group, PointInfo& layout)
{
    const std::size_t at = group.find('@');
    if (at == std::string::npos)
        QM_THROW(40007, "the quantization value is missing for '%s'", group.c_str());
    const char* const text = group.c_str() + at + 1;
    double value = 0;
    if (parseDouble(text, group.c_str() + group.size(), value) == text)
        QM_THROW(40007, "could not parse quantization for '%s'", group.c_str());
    if (value == 0)
        QM_THROW(40007, "quantization for '%s' can not be zero", group.c_str());
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
        QM_THROW(40007, "format string not given");
    PointInfo layout;
    layout.init(std::strlen(format));
    for (std::size_t i = 0; format[i] != '\0'; ++i) {
        const Token& token = findToken(format[i]);
        layout.getChannel(i).init(token.channel, token.type, token.bits, 0.0);
    }
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
            QM_THROW(40007, "'%s' is not in the input channel mapping", channel.getName());
        channel.init(*same);
    }
    out = std::move(layout);
}

void parseQuantization(const char* text, PointInfo& layout)
{
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
