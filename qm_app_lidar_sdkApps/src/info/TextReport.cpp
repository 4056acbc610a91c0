#include "info/TextReport.h"

#include "index/DiskRTree.h"
#include "model/ChannelNames.h"
#include "text/Printable.h"
#include "utils/program/ClassNames.h"
#include "utils/program/Summary.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <langinfo.h>
#include <unistd.h>

namespace Quillmoran {

namespace {

void writeChannels(const PointSource& source)
{
    std::printf("Channels:\n   %-20s %-8s %5s %12s\n", "Name", "Type", "Bits", "Step");
    for (std::size_t i = 0; i < source.getNumChannels(); ++i) {
        const ChannelInfo& channel = source.getChannel(i);
        std::printf("   %-20s %-8s %5d %12g\n", printable(channel.getName()).c_str(),
                    DataTypeUtils::toString(channel.getDataType()), channel.getBits(),
                    channel.getQuantization());
    }
}

void writeClassNames(const PointSource& source)
{
    if (source.getNumClassIdNames() == 0)
        return;
    std::printf("Class Names:\n");
    for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
        if (const char* name = source.getClassIdNames()[i])
            std::printf("   %3zu  %s\n", i, printable(name).c_str());
}

void writeMetadata(const Metadata& metadata)
{
    if (metadata.getNumRecords() == 0)
        return;
    std::printf("Metadata:\n");
    metadata.dump(stdout);
}

void writeRecord(const WaveletDecoderChannelInfo& record, const CompressedSize::Channel& size)
{
    std::printf("   %-20s %-8s %5d %9" PRIu32 " %12g %14.10g", printable(record.getName()).c_str(),
                DataTypeUtils::toString(record.getKernelDataType()), record.getBits(),
                record.getSubblockSize(), record.getScale(), record.getOffset() + 0.0); // no -0
    if (size.interleaved)
        std::printf(" %12s", "(in data)");
    else
        std::printf(" %12" PRId64, size.headerBytes);
    std::printf(" %12" PRId64 "  %d (%s)\n", size.dataBytes, record.getTransformType(),
                TransformUtils::toString(record.getTransformType()).c_str());
}

void writeCompression(const WaveletDecoderInfo& info, const CompressedSize& size)
{
    const RTree& index = info.getIndex();
    std::printf("Compression:\n   Index:             %s, %zu boxes of %" PRIu32 " points, %" PRId64
                " bytes\n",
                dynamic_cast<const DiskRTree*>(&index) ? "tree" : "list of boxes", index.getCount(),
                info.getPointsPerEntry(), info.getIndexLength());
    std::printf("   %-20s %20s %20s\n", "Level", "Points", "Bytes");
    for (std::uint32_t level = 0; level < info.getNumLevels(); ++level)
        std::printf("   %-20" PRIu32 " %20" PRId64 " %20" PRId64 "\n", level, info.getNumSamples(level),
                    size.levelBytes[level]);
    std::printf("   %-20s %-8s %5s %9s %12s %14s %12s %12s  %s\n", "Record", "Kernel", "Bits", "Subblock",
                "Scale", "Offset", "Header Bytes", "Data Bytes", "Transform");
    for (std::size_t i = 0; i < info.getChannels().size(); ++i)
        writeRecord(info.getChannels()[i], size.channels[i]);
}

void writeDescription(const SourceDescription& description, const std::string& fileName)
{
    const PointSource& source = *description.source;
    Utils::printHeader(stdout, source, fileName.c_str());
    if (description.fileBytes)
        std::printf("   File Size:         %" PRIu64 " bytes\n", *description.fileBytes);
    if (description.hasWaveforms)
        std::printf("   Waveform Packets:  yes, not decoded\n");
    writeChannels(source);
    writeClassNames(source);
    writeMetadata(description.metadata);
    if (description.compression)
        writeCompression(*description.compression, description.compressedSize);
}

std::string toText(const ChannelStatistics::Sample& sample)
{
    if (const auto* real = std::get_if<double>(&sample)) {
        char text[32];
        std::snprintf(text, sizeof text, "%.10g", *real);
        return text;
    }
    const auto* natural = std::get_if<std::uint64_t>(&sample);
    return natural ? std::to_string(*natural) : std::to_string(std::get<std::int64_t>(sample));
}

// How bars are drawn: in the characters of the output, from low to high.
struct BarStyle
{
    const char* levels[8];

    static const BarStyle& ofStandardOutput();
};

// Blocks on terminals that show them; files and other programs get plain characters.
const BarStyle& BarStyle::ofStandardOutput()
{
    static constexpr BarStyle plain = {{".", ":", "-", "=", "+", "*", "#", "@"}};
    static constexpr BarStyle blocks = {
        {"\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"}};
    if (::isatty(STDOUT_FILENO) != 1)
        return plain;
    const locale_t locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    if (!locale)
        return plain;
    const bool isUTF8 = std::strcmp(::nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
    ::freelocale(locale);
    return isUTF8 ? blocks : plain;
}

// A character per bin, a space for an empty one, between the ends of the range.
std::string drawHistogram(const std::vector<std::uint64_t>& counts, const BarStyle& style)
{
    const double highest =
        counts.empty() ? 0 : static_cast<double>(*std::max_element(counts.begin(), counts.end()));
    constexpr auto numLevels = static_cast<double>(std::size(BarStyle().levels));
    std::string text = "|";
    for (const std::uint64_t count : counts)
        text += count == 0 ? " "
                           : style.levels[static_cast<std::size_t>(
                                 std::ceil(static_cast<double>(count) / highest * numLevels) - 1)];
    return text + '|';
}

std::string toText(double number)
{
    return toText(ChannelStatistics::Sample(number));
}

void writeStatistics(const FileReport& report)
{
    constexpr std::size_t numColumns = 7, widestHistogram = 32;
    using Row = std::array<std::string, numColumns>;
    const bool isSampled = report.samplingInterval > 1;
    const BarStyle& style = BarStyle::ofStandardOutput();
    std::vector<Row> rows = {{"Name", "Count", "Not Finite", "Minimum", "Maximum", "Mean", "Histogram"}};
    for (const ChannelStatistics& channel : report.statistics) {
        Row& row = rows.emplace_back(Row{printable(channel.getName()), std::to_string(channel.getCount()),
                                         std::to_string(channel.getNumNotFinite())});
        if (channel.getCount() == 0)
            continue;
        const std::string rangeMark = isSampled && !channel.isRangeKnown() ? "~" : "";
        row[3] = rangeMark + toText(channel.getMinimum());
        row[4] = rangeMark + toText(channel.getMaximum());
        row[5] = (isSampled ? "~" : "") + toText(channel.getMean());
        row[6] = drawHistogram(channel.getBins(widestHistogram).counts, style);
    }
    std::array<int, numColumns> widths = {};
    for (const Row& row : rows)
        for (std::size_t i = 0; i < numColumns; ++i)
            widths[i] = std::max(widths[i], static_cast<int>(row[i].size()));

    if (isSampled)
        std::printf("Statistics, estimated from 1 of %" PRIu64 " points (~ marks estimates):\n",
                    report.samplingInterval);
    else
        std::printf("Statistics%s:\n", report.isFast ? " (all points are read)" : "");
    for (const Row& row : rows) {
        std::printf("   %-*s", widths[0], row[0].c_str());
        for (std::size_t i = 1; i + 1 < numColumns && !row[i].empty(); ++i)
            std::printf("  %*s", widths[i], row[i].c_str());
        std::printf("%s%s\n", row.back().empty() ? "" : "  ", row.back().c_str());
    }
}

void writeCheck(const FileReport& report)
{
    std::printf("Check:\n   %lld points and %zu boxes looked at, %zu problems\n", report.check->numPoints,
                report.check->numQueries, report.problems.size());
    if (report.check->numDigests != 0)
        std::printf("   %" PRIu64 " digests compared\n", report.check->numDigests);
    else if (report.description->compression)
        std::printf("   no digests: structure only\n");
}

// The number of points with each code, and their share.
void writeCodeCounts(const std::vector<ChannelStatistics>& statistics, const PointSource& source)
{
    for (const ChannelStatistics& channel : statistics) {
        const std::vector<std::uint64_t>& counts = channel.getCodeCounts();
        if (counts.empty())
            continue;
        const bool areClasses = channel.getName() == ChannelNames::classId;
        std::printf("Points by %s:\n", printable(channel.getName()).c_str());
        for (std::size_t code = 0; code < counts.size(); ++code) {
            if (counts[code] == 0)
                continue;
            const double share = static_cast<double>(counts[code]) / static_cast<double>(channel.getCount());
            std::printf("   %3zu %14" PRIu64 " %6.2f %%", code, counts[code], 100 * share);
            const std::string name = areClasses ? printable(Utils::classNameOf(source, code)) : "";
            std::printf("%s%s\n", name.empty() ? "" : "  ", name.c_str());
        }
    }
}

} // namespace

void writeText(const FileReport& report)
{
    if (!report.description)
        return;
    writeDescription(*report.description, report.fileName);
    if (report.check)
        writeCheck(report);
    if (!report.statistics.empty()) {
        writeStatistics(report);
        writeCodeCounts(report.statistics, *report.description->source);
    }
}

} // namespace Quillmoran
