#include "pack/PackReport.h"

#include "common/coders/TransformUtils.h"
#include "model/ChannelNames.h"
#include "text/Printable.h"
#include "utils/program/Program.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Quillmoran {

void printPackReport(std::FILE* stream, const VX7PointWriter& writer, std::int64_t numPoints)
{
    std::fprintf(stream, "   %-20s %12s %8s %9s %12s %16s  %s\n", "Record", "Bytes", "a Point", "Subblock",
                 "Scale", "Offset", "Transform");
    for (const VX7PointWriter::ChannelSummary& channel : writer.getSummary()) {
        const double perPoint =
            numPoints == 0 ? 0 : static_cast<double>(channel.size) / static_cast<double>(numPoints);
        std::fprintf(stream, "   %-20s %12lld %8.3f %9u %12g %16.10g  %d (%s)\n",
                     printable(channel.name).c_str(), static_cast<long long>(channel.size), perPoint,
                     channel.subblockSize, channel.scale, channel.offset + 0.0,
                     static_cast<int>(channel.transform),
                     TransformUtils::toString(channel.transform).c_str());
    }
}

void warnOfLostScales(const VX7PointWriter& writer, const PointInfo& layout, const char* output)
{
    const std::vector<VX7PointWriter::ChannelSummary>& records = writer.getSummary();
    std::string names;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        const ChannelInfo* channel = layout.getChannel(name);
        // The parts of a split channel have other names.
        const bool isKept = std::any_of(records.begin(), records.end(), [name](const auto& record) {
            return record.name == name && record.scale != 0;
        });
        if (channel && channel->getQuantization() != 0 && !isKept)
            names += std::string(names.empty() ? "" : ", ") + name;
    }
    if (!names.empty())
        Utils::warn(std::string("'") + output + "': the scale and offset of " + names +
                    " are not stored, since the file has these coordinates as floating-point numbers; LAS "
                    "output rounds "
                    "them to 0.001 unless -sc is given");
}

} // namespace Quillmoran
