#include "support/Encoders.h"

#include "support/LASzipHandle.h"
#include "utils/ThreadPool.h"
#include <vxunpack/Base.h>
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/LASPointReader.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran::Benchmarks {

namespace {

constexpr std::size_t blockPoints = 65536;

Scoped<PointSource> open(const std::string& path)
{
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    opener->setOpenFullWaveformFiles(true);
    return Scoped<PointSource>(opener->openPointSource(QMFileSpec(path.c_str())));
}

// The format with the same channels that has no wave packets.
LASPointFormat withoutWaveform(std::uint8_t number)
{
    switch (number) {
    case 4:
        return {1};
    case 5:
        return {3};
    case 9:
        return {6};
    case 10:
        return {8};
    default:
        return {number};
    }
}

void copyHeader(laszip_header_struct& to, const laszip_header_struct& from)
{
    const LASPointFormat format = withoutWaveform(from.point_data_format);
    to = from;
    to.header_size = LASHeader::sizeOfVersion(from.version_minor);
    to.offset_to_point_data = to.header_size;
    to.point_data_format = format.number;
    to.point_data_record_length = static_cast<laszip_U16>(format.recordLength());
    to.number_of_variable_length_records = 0;
    to.vlrs = nullptr;
    to.start_of_waveform_data_packet_record = 0;
    to.start_of_first_extended_variable_length_record = 0;
    to.number_of_extended_variable_length_records = 0;
    to.user_data_in_header_size = 0;
    to.user_data_in_header = nullptr;
    to.user_data_after_header_size = 0;
    to.user_data_after_header = nullptr;
}

// Returns 0 at the end of the points only.
std::size_t fill(PointIterator& points, PointData& block)
{
    std::size_t filled = 0;
    while (filled < block.getNumSamples()) {
        block.setOffset(filled);
        const std::size_t count = points.getNextPoints(block);
        block.setOffset(0);
        if (count == 0)
            break;
        filled += count;
    }
    return filled;
}

} // namespace

PackResult packVXL(const std::string& input, const std::string& output, unsigned numThreads)
{
    PackResult result;
    ThreadPool pool(numThreads);
    pool.execute([&] {
        const Scoped<LASPointReader> source(LASPointReader::create());
        source->init(input.c_str(), true);
        const Scoped<VX7PointWriter> writer(VX7PointWriter::create());
        writer->init(source.get(), output.c_str());
        result.numPoints = writer->write(Bounds::Huge(), 1, source->getPointInfo(), nullptr);
        result.channels = writer->getSummary();
    });
    return result;
}

void compressLAZ(const std::string& input, const std::string& output, bool isIndexed)
{
    LASzipHandle reader;
    const std::uint64_t numPoints = reader.openReader(input);

    const LASzipHandle writer;
    copyHeader(writer.header(), reader.header());
    const LASPointFormat format{writer.header().point_data_format};
    writer.check(laszip_request_native_extension(writer.get(), format.isExtended()));
    if (isIndexed)
        writer.check(laszip_create_spatial_index(writer.get(), 1, 0));
    writer.check(laszip_open_writer(writer.get(), output.c_str(), 1));

    const laszip_point_struct& from = reader.point();
    laszip_point_struct& to = writer.point();
    for (std::uint64_t i = 0; i < numPoints; ++i) {
        reader.check(laszip_read_point(reader.get()));
        to = from;
        to.num_extra_bytes = 0;
        to.extra_bytes = nullptr;
        writer.check(isIndexed ? laszip_write_indexed_point(writer.get()) : laszip_write_point(writer.get()));
    }
    writer.check(laszip_close_writer(writer.get()));
    reader.check(laszip_close_reader(reader.get()));
}

void requireSamePoints(const std::string& expected, const std::string& actual)
{
    const Scoped<PointSource> left = open(expected);
    const Scoped<PointSource> right = open(actual);
    const PointInfo& layout = left->getPointInfo();
    if (right->getNumChannels() != layout.getNumChannels() || right->getNumPoints() != left->getNumPoints())
        QM_THROW(ErrorCode::General, "%s has other channels or another number of points", actual.c_str());

    // Channels that the layout names and the file lacks, or has with another type, are errors of the
    // iterator.
    const Scoped<PointIterator> leftPoints(left->createIterator(Bounds::Huge(), 1, layout, nullptr));
    const Scoped<PointIterator> rightPoints(right->createIterator(Bounds::Huge(), 1, layout, nullptr));
    PointData leftBlock;
    PointData rightBlock;
    leftBlock.init(layout, blockPoints);
    rightBlock.init(layout, blockPoints);
    std::int64_t numPoints = 0;
    for (;;) {
        const std::size_t count = fill(*leftPoints, leftBlock);
        if (fill(*rightPoints, rightBlock) != count)
            QM_THROW(ErrorCode::General, "%s ends elsewhere than its header says", actual.c_str());
        if (count == 0)
            break;
        for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
            const ChannelInfo& channel = layout.getChannel(i);
            const std::size_t bytes = count * DataTypeUtils::getSize(channel.getDataType());
            if (std::memcmp(leftBlock.getChannel(i).getData(), rightBlock.getChannel(i).getData(), bytes) !=
                0)
                QM_THROW(ErrorCode::General, "%s differs in channel %s", actual.c_str(), channel.getName());
        }
        numPoints += static_cast<std::int64_t>(count);
    }
    if (numPoints != left->getNumPoints())
        QM_THROW(ErrorCode::General, "%s and %s do not deliver all their points", expected.c_str(),
                 actual.c_str());
}

} // namespace Quillmoran::Benchmarks
