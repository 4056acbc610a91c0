#include "pdal/PDALDimensions.h"

#include "model/ChannelNames.h"

#include <algorithm>
#include <cctype>
#include <strings.h>

namespace Quillmoran::PDALDimensions {

namespace {

constexpr double extendedScanAngleStep = 0.006; // degrees, of the 16-bit scan angles of LAS 1.4

std::string toDimensionName(const std::string& channel)
{
    if (const char* standard = ChannelNames::toPDAL(channel))
        return standard;
    std::string name = channel;
    const auto isInvalid = [](unsigned char c) { return !std::isalnum(c); };
    std::replace_if(name.begin(), name.end(), isInvalid, '_');
    return std::isalpha(static_cast<unsigned char>(name.c_str()[0])) ? name : "C_" + name;
}

bool isUsed(const std::vector<PDALDimension>& dimensions, const std::string& name)
{
    return std::any_of(dimensions.begin(), dimensions.end(), [&](const PDALDimension& each) {
        return strcasecmp(each.name.c_str(), name.c_str()) == 0;
    });
}

} // namespace

std::vector<PDALDimension> ofLayout(const PointInfo& layout)
{
    std::vector<PDALDimension> dimensions;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        std::string name = toDimensionName(channel.getName() ? channel.getName() : "");
        while (isUsed(dimensions, name))
            name += '_';
        const bool extendedAngle =
            channel.isNamed(ChannelNames::scanAngle) && channel.getDataType() == SINT16;
        if (extendedAngle)
            dimensions.push_back({name, FLOAT32, extendedScanAngleStep});
        else
            dimensions.push_back({name, channel.getDataType(), 1});
    }
    return dimensions;
}

} // namespace Quillmoran::PDALDimensions
