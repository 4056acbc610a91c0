#include "pdal/PDALDimensions.h"

#include "model/ChannelNames.h"

#include <algorithm>
#include <cctype>

namespace Quillmoran::PDALDimensions {

namespace {

constexpr double extendedScanAngleStep = 0.006; // degrees, of the 16-bit scan angles of LAS 1.4

bool isLetter(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

bool isLetterOrDigit(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

std::string toDimensionName(const std::string& channel)
{
    if (const char* standard = ChannelNames::toPDAL(channel))
        return standard;
    std::string name = channel;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isLetterOrDigit(c); }, '_');
    return !name.empty() && isLetter(name[0]) ? name : "C_" + name;
}

bool isTaken(const std::vector<PDALDimension>& dimensions, const std::string& name)
{
    const auto equalsIgnoringCase = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return std::any_of(dimensions.begin(), dimensions.end(), [&](const PDALDimension& each) {
        return std::equal(each.name.begin(), each.name.end(), name.begin(), name.end(), equalsIgnoringCase);
    });
}

} // namespace

std::vector<PDALDimension> ofLayout(const PointInfo& layout)
{
    std::vector<PDALDimension> dimensions;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        std::string name = toDimensionName(channel.getName() ? channel.getName() : "");
        while (isTaken(dimensions, name))
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
