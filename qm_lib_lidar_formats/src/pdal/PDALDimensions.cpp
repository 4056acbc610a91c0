#include "pdal/PDALDimensions.h"

#include "model/ChannelNames.h"

#include <algorithm>
#include <cctype>

namespace Quillmoran::PDALDimensions {

namespace {

struct StandardName
{
    const char* channel;
    const char* dimension;
};

constexpr StandardName standardNames[] = {
    {ChannelNames::x, "X"},
    {ChannelNames::y, "Y"},
    {ChannelNames::z, "Z"},
    {ChannelNames::intensity, "Intensity"},
    {ChannelNames::returnNum, "ReturnNumber"},
    {ChannelNames::numReturns, "NumberOfReturns"},
    {ChannelNames::scanDir, "ScanDirectionFlag"},
    {ChannelNames::edgeFlightLine, "EdgeOfFlightLine"},
    {ChannelNames::classId, "Classification"},
    {ChannelNames::classFlags, "ClassFlags"},
    {ChannelNames::scannerChannel, "ScanChannel"},
    {ChannelNames::scanAngle, "ScanAngleRank"},
    {ChannelNames::userData, "UserData"},
    {ChannelNames::sourceId, "PointSourceId"},
    {ChannelNames::gpsTime, "GpsTime"},
    // The same clock with another zero; PDAL has one name for both, and the first of them gets it.
    {ChannelNames::gpsTimeAdjusted, "GpsTime"},
    {ChannelNames::red, "Red"},
    {ChannelNames::green, "Green"},
    {ChannelNames::blue, "Blue"},
    {ChannelNames::nearInfrared, "Infrared"},
};

constexpr double extendedScanAngleStep = 0.006; // degrees, of the 16-bit scan angles of LAS 1.4

bool isLetter(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

bool isLetterOrDigit(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// Letters and digits in lower case: what PDAL and the makers of BPF files agree on.
std::string comparable(const std::string& name)
{
    std::string text;
    for (const char c : name)
        if (isLetterOrDigit(c))
            text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string toDimensionName(const std::string& channel)
{
    const auto found = std::find_if(std::begin(standardNames), std::end(standardNames),
                                    [&](const StandardName& each) { return each.channel == channel; });
    if (found != std::end(standardNames))
        return found->dimension;
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

const char* standardChannel(const std::string& dimension)
{
    const std::string wanted = comparable(dimension);
    for (const StandardName& each : standardNames)
        if (comparable(each.dimension) == wanted)
            return each.channel;
    return nullptr;
}

} // namespace Quillmoran::PDALDimensions
