#include "apps/SizeTable.h"

#include "apps/Goals.h"
#include "common/coders/TransformUtils.h"
#include "files/QMFileUtils.h"
#include "support/Encoders.h"
#include "support/Statistics.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace Quillmoran::Benchmarks {

namespace {

// Smaller files are mostly header, records and what compression has to learn.
constexpr std::int64_t leastPointsToShow = 10000;

struct Row
{
    std::string name;
    std::int64_t vxlBytes = 0;
    std::int64_t bandBytes = 0;
    std::int64_t lazBytes = 0;
    PackResult packed;
};

Row measure(const std::string& file, const std::string& directory)
{
    const std::string vxl = directory + "/sizes.vxl";
    const std::string laz = directory + "/sizes.laz";
    Row row;
    row.name = QMFileSpec(file.c_str()).basename();
    row.packed = packVXL(file, vxl, 0);
    requireSamePoints(file, vxl);
    compressLAZ(file, laz);
    requireSamePoints(file, laz);
    row.vxlBytes = QMFileUtils::getSize(vxl.c_str());
    row.lazBytes = QMFileUtils::getSize(laz.c_str());
    for (const VX7PointWriter::ChannelSummary& channel : row.packed.channels)
        row.bandBytes += channel.size;
    return row;
}

void printRow(const Row& row)
{
    const auto numPoints = static_cast<double>(std::max<std::int64_t>(row.packed.numPoints, 1));
    const auto vxl = static_cast<double>(row.vxlBytes);
    const auto bands = static_cast<double>(row.bandBytes);
    const auto laz = static_cast<double>(row.lazBytes);
    const double ratio = vxl / laz;
    std::printf("%-24s %9lld %10lld %10lld %10lld %8.3f %8.3f %8.3f %6.3f %6.3f  %s\n", row.name.c_str(),
                static_cast<long long>(row.packed.numPoints), static_cast<long long>(row.vxlBytes),
                static_cast<long long>(row.bandBytes), static_cast<long long>(row.lazBytes), vxl / numPoints,
                bands / numPoints, laz / numPoints, ratio, bands / laz, mark(ratio <= Goals::sizeRatio));
}

void add(Row& sum, const Row& row)
{
    sum.vxlBytes += row.vxlBytes;
    sum.bandBytes += row.bandBytes;
    sum.lazBytes += row.lazBytes;
    sum.packed.numPoints += row.packed.numPoints;
}

void printChannels(const Row& row)
{
    std::printf("\n%s\n  %-20s %10s %9s %9s  %s\n", row.name.c_str(), "record", "bytes", "a point",
                "subblock", "transform");
    for (const VX7PointWriter::ChannelSummary& channel : row.packed.channels)
        std::printf("  %-20s %10lld %9.3f %9u  %d (%s)\n", channel.name.c_str(),
                    static_cast<long long>(channel.size),
                    static_cast<double>(channel.size) / static_cast<double>(row.packed.numPoints),
                    channel.subblockSize, static_cast<int>(channel.transform),
                    TransformUtils::toString(channel.transform).c_str());
}

} // namespace

void printSizes(const std::vector<std::string>& files, const std::string& directory)
{
    std::printf(
        "Sizes. vxl: the whole file, with the records of the input as metadata; bands: its samples alone.\n"
        "laz: the whole file, with the header of the input, the record that describes the compression, and\n"
        "no others. Goal: vxl / laz of at most %.2f.\n\n",
        Goals::sizeRatio);
    std::printf("%-24s %9s %10s %10s %10s %8s %8s %8s %6s %6s\n", "", "", "vxl", "bands", "laz", "vxl",
                "bands", "laz", "vxl", "bands");
    std::printf("%-24s %9s %10s %10s %10s %8s %8s %8s %6s %6s  %s\n", "file", "points", "bytes", "bytes",
                "bytes", "a point", "a point", "a point", "/ laz", "/ laz", "goal");
    std::vector<Row> rows;
    Row sum;
    Row largeSum;
    sum.name = "all";
    largeSum.name = "those of 10000 and more";
    for (const std::string& file : files) {
        rows.push_back(measure(file, directory));
        const Row& row = rows.back();
        printRow(row);
        add(sum, row);
        if (row.packed.numPoints >= leastPointsToShow)
            add(largeSum, row);
    }
    printRow(sum);
    if (largeSum.packed.numPoints != 0)
        printRow(largeSum);
    for (const Row& row : rows)
        if (row.packed.numPoints >= leastPointsToShow)
            printChannels(row);
}

} // namespace Quillmoran::Benchmarks
