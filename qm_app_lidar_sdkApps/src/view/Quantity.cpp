#include "view/Quantity.h"

#include "model/ChannelNames.h"
#include <vxunpack/ChannelInfo.h>

#include <strings.h>

namespace Quillmoran {

namespace {

struct Word
{
    const char* text;
    Quantity::Kind kind;
    std::vector<std::string> channels;
};

const std::vector<Word>& words()
{
    static const std::vector<Word> all = {
        {"color", Quantity::Colors, {ChannelNames::red, ChannelNames::green, ChannelNames::blue}},
        {"elevation", Quantity::Elevation, {}},
        {"hillshade", Quantity::Hillshade, {}},
        {"intensity", Quantity::Intensity, {ChannelNames::intensity}},
        {"class", Quantity::Class, {ChannelNames::classId}},
        {"return", Quantity::Return, {ChannelNames::returnNum}},
        {"density", Quantity::Density, {}},
        {"time", Quantity::Time, {"GpsTime"}},
    };
    return all;
}

} // namespace

std::vector<const char*> Quantity::listNames()
{
    std::vector<const char*> names;
    for (const Word& word : words())
        names.push_back(word.text);
    return names;
}

Quantity Quantity::parse(const std::string& text, const PointInfo& layout, const std::string& file)
{
    Quantity quantity = {Channel, {text}};
    for (const Word& word : words())
        if (strcasecmp(word.text, text.c_str()) == 0)
            quantity = {word.kind, word.channels};
    const std::string context = '\'' + file + '\'';
    for (std::string& channel : quantity.channels)
        channel = ChannelNames::require(channel, layout, context.c_str()).getName();
    return quantity;
}

Quantity Quantity::choose(const PointInfo& layout)
{
    for (const Word& word : words()) {
        bool hasAll = true;
        for (const std::string& channel : word.channels)
            hasAll = hasAll && layout.hasChannel(channel.c_str());
        if (hasAll)
            return {word.kind, word.channels}; // the first two, of which the second needs none
    }
    return {};
}

} // namespace Quillmoran
