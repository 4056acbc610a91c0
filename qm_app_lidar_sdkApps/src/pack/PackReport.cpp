#include "pack/PackReport.h"

#include "text/Printable.h"

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
                     channel.subblockSize, channel.scale, channel.offset, static_cast<int>(channel.transform),
                     TransformUtils::toString(channel.transform));
    }
}

} // namespace Quillmoran
