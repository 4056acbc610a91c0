#include "model/ChannelNames.h"

#include <vxunpack/Base.h>
#include <vxunpack/PointInfo.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <strings.h>

namespace Quillmoran::ChannelNames {

namespace {

struct StandardName
{
    const char* channel;
    const char* dimension; // of PDAL
    const char* other;     // in LAS or other LAS software; may be null
};

constexpr StandardName standardNames[] = {
    {x, "X", nullptr},
    {y, "Y", nullptr},
    {z, "Z", nullptr},
    {intensity, "Intensity", nullptr},
    {returnNum, "ReturnNumber", nullptr},
    {numReturns, "NumberOfReturns", nullptr},
    {scanDir, "ScanDirectionFlag", "ScanDirection"},
    {edgeFlightLine, "EdgeOfFlightLine", nullptr},
    {classId, "Classification", "Class"},
    {classFlags, "ClassFlags", "ClassificationFlags"},
    {scannerChannel, "ScanChannel", "ScannerChannel"},
    {scanAngle, "ScanAngleRank", "ScanAngle"},
    {userData, "UserData", nullptr},
    {sourceId, "PointSourceId", nullptr},
    {gpsTime, "GpsTime", nullptr},
    // The same clock with another epoch. PDAL has one name for both; the first row takes precedence.
    {gpsTimeAdjusted, "GpsTime", nullptr},
    {red, "Red", nullptr},
    {green, "Green", nullptr},
    {blue, "Blue", nullptr},
    {nearInfrared, "Infrared", "NIR"},
};

// The letters and digits of a name in lower case, the same for all its spellings.
std::string comparable(const char* name)
{
    std::string text;
    for (; *name != '\0'; ++name)
        if (std::isalnum(static_cast<unsigned char>(*name)))
            text += static_cast<char>(std::tolower(static_cast<unsigned char>(*name)));
    return text;
}

// The only channel with this name ignoring case; null if there are none or several.
const ChannelInfo* findIgnoringCase(const std::string& name, const PointInfo& layout)
{
    const ChannelInfo* found = nullptr;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        if (!channel.getName() || strcasecmp(channel.getName(), name.c_str()) != 0)
            continue;
        if (found)
            return nullptr;
        found = &channel;
    }
    return found;
}

} // namespace

const ChannelInfo* resolve(const std::string& name, const PointInfo& layout)
{
    if (const ChannelInfo* channel = layout.getChannel(name.c_str()))
        return channel;
    if (const ChannelInfo* channel = findIgnoringCase(name, layout))
        return channel;
    const std::string wanted = comparable(name.c_str());
    for (const StandardName& each : standardNames)
        if (wanted == comparable(each.dimension) || (each.other && wanted == comparable(each.other)))
            if (const ChannelInfo* channel = layout.getChannel(each.channel))
                return channel;
    return nullptr;
}

const ChannelInfo& require(const std::string& name, const PointInfo& layout, const char* context)
{
    if (const ChannelInfo* channel = resolve(name, layout))
        return *channel;
    std::string known;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        constexpr std::size_t longest = 600; // of the list, in a message of limited length
        if (known.size() > longest) {
            known += ", ...";
            break;
        }
        const char* const channel = layout.getChannel(i).getName();
        known += (i == 0 ? "" : ", ") + std::string(channel ? channel : "");
    }
    QM_THROW(ErrorCode::InvalidArgument, "%s does not have channel: '%.200s', its channels are %s", context,
             name.c_str(), known.c_str());
}

const char* toPDAL(const std::string& channel)
{
    const auto found = std::find_if(std::begin(standardNames), std::end(standardNames),
                                    [&](const StandardName& each) { return each.channel == channel; });
    return found == std::end(standardNames) ? nullptr : found->dimension;
}

const char* fromPDAL(const std::string& dimension)
{
    const std::string wanted = comparable(dimension.c_str());
    for (const StandardName& each : standardNames)
        if (comparable(each.dimension) == wanted)
            return each.channel;
    return nullptr;
}

} // namespace Quillmoran::ChannelNames
