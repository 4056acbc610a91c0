#include "info/TextReport.h"

#include "index/DiskRTree.h"
#include "model/ChannelNames.h"
#include "text/Printable.h"
#include "utils/program/Summary.h"

#include <cinttypes>
#include <cstdio>

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

void writeStatistics(const std::vector<ChannelStatistics>& statistics)
{
    std::printf("Statistics:\n   %-20s %14s %10s %20s %20s %20s\n", "Name", "Count", "Not Finite", "Minimum",
                "Maximum", "Mean");
    for (const ChannelStatistics& channel : statistics) {
        std::printf("   %-20s %14" PRIu64 " %10" PRIu64, printable(channel.getName()).c_str(),
                    channel.getCount(), channel.getNumNotFinite());
        if (channel.getCount() != 0)
            std::printf(" %20s %20s %20.10g", toText(channel.getMinimum()).c_str(),
                        toText(channel.getMaximum()).c_str(), channel.getMean());
        std::putchar('\n');
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

const char* classNameOf(const PointSource& source, std::size_t code)
{
    const char* name = code < source.getNumClassIdNames() ? source.getClassIdNames()[code] : nullptr;
    return name ? name : "";
}

// The number of points with each code.
void writeHistograms(const std::vector<ChannelStatistics>& statistics, const PointSource& source)
{
    for (const ChannelStatistics& channel : statistics) {
        const std::vector<std::uint64_t>& histogram = channel.getHistogram();
        if (histogram.empty())
            continue;
        const bool areClasses = channel.getName() == ChannelNames::classId;
        std::printf("Points by %s:\n", printable(channel.getName()).c_str());
        for (std::size_t code = 0; code < histogram.size(); ++code)
            if (histogram[code] != 0)
                std::printf("   %3zu %14" PRIu64 "  %s\n", code, histogram[code],
                            areClasses ? printable(classNameOf(source, code)).c_str() : "");
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
        writeStatistics(report.statistics);
        writeHistograms(report.statistics, *report.description->source);
    }
}

} // namespace Quillmoran
