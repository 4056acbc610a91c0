#include <vxunpack/VX7PointReader.h>

#include "decode/WaveletDecoder.h"
#include "decode/container/ChunkReader.h"
#include "model/ChannelNames.h"
#include <vxunpack/FileIO.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::uint32_t classNamesVersion = 0x04000002; // first version with class names

} // namespace

VX7PointReader::VX7PointReader() = default;

VX7PointReader::~VX7PointReader() = default;

VX7PointReader* VX7PointReader::create()
{
    return new VX7PointReader;
}

void VX7PointReader::init(const char* path)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path, "r");
    init(file.get());
}

void VX7PointReader::init(IO* io)
{
    if (!io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    ChunkReader chunks(io);
    Scoped<WaveletDecoderInfo> info = readChunks(chunks);
    chunks.close();
    info->finish();
    m_info = std::move(info);
    setDescription();
}

Scoped<WaveletDecoderInfo> VX7PointReader::readChunks(ChunkReader& chunks)
{
    std::array<std::uint8_t, 4> version;
    const std::uint64_t fileLength = BaseChunkReader::readMagic(chunks.stream(), version);
    std::snprintf(m_fileFormat, sizeof m_fileFormat, "VX7 %d.%d.%d.%d", version[0], version[1], version[2],
                  version[3]);
    const std::uint32_t packedVersion = loadBigEndian<std::uint32_t>(version.data());
    std::int64_t remaining = chunks.readGroupHeader(fileLength);

    Scoped<WaveletDecoderInfo> info(WaveletDecoderInfo::create(packedVersion));
    info->load(chunks, remaining);

    ChunkHeader chunk;
    chunks.readChunkHeader(chunk, remaining, CHUNK_METADATA, ErrorCode::MetadataChunkRead);
    const std::int64_t afterBands = chunk.offset;
    IO* const file = info->getFile();
    chunk.save(file, info->getChunks().metadata);
    chunks.readMetadata(chunk.length, m_metadata);
    chunks.readChunkHeader(chunk, remaining, CHUNK_WKT, ErrorCode::WKTChunkRead);
    chunk.save(file, info->getChunks().wkt);
    if (const auto wkt = chunks.readWKT(chunk.length))
        setWKT(wkt->c_str());
    if (packedVersion >= classNamesVersion) {
        chunks.readChunkHeader(chunk, remaining, CHUNK_CLASS_NAMES, ErrorCode::ClassNamesChunkRead);
        chunk.save(file, info->getChunks().classNames);
        const auto names = chunks.readClassNames(chunk.length);
        std::vector<const char*> pointers;
        pointers.reserve(names.size());
        for (const auto& name : names)
            pointers.push_back(name ? name->c_str() : nullptr);
        setClassIdNames(pointers.data(), pointers.size());
    }
    bool hasDigests = false;
    if (remaining > 0) {
        const std::uint32_t id = chunks.readChunkHeader(chunk, remaining, ErrorCode::ExtendedRecordRead);
        hasDigests = id == CHUNK_DIGESTS;
        if (id == CHUNK_EXTENDED_HEADER) {
            const std::int64_t next = chunks.stream().tell() + chunk.length;
            chunks.readExtendedHeader(chunk.length, info->getChannels());
            chunks.stream().seek(next, Stream::SEEK_FROM_START);
            hasDigests = chunks.readDigestsHeader(chunk, remaining);
        }
    }
    if (hasDigests)
        info->getDigests().setDigests(afterBands, {file, chunk.offset + ChunkHeader::size, chunk.length});
    return info;
}

void VX7PointReader::setDescription()
{
    setNumPoints(m_info->getNumPoints());
    setBounds(m_info->getBounds());
    setPointInfo(m_info->getPointInfo());

    double scale[3];
    double offset[3];
    const char* const names[3] = {ChannelNames::x, ChannelNames::y, ChannelNames::z};
    for (int axis = 0; axis < 3; ++axis) {
        const auto channel = m_info->getChannel(names[axis]);
        if (!channel)
            return;
        scale[axis] = m_info->getChannel(*channel).getScale();
        offset[axis] = m_info->getChannel(*channel).getOffset();
    }
    setQuantization(scale, offset);
}

const WaveletDecoderInfo& VX7PointReader::getDecoderInfo() const
{
    if (!m_info)
        QM_THROW(ErrorCode::InvalidArgument, "the reader is not open");
    return *m_info;
}

void VX7PointReader::loadMetadata(Metadata& into, bool) const
{
    getDecoderInfo();
    BaseChunkReader::readMetadata(m_metadata, into);
}

double VX7PointReader::getTotalWork(const Bounds& bounds, double fraction) const
{
    const WaveletDecoderInfo& info = getDecoderInfo();
    if (!(fraction > 0))
        return 0;
    double points = 0;
    for (const auto& range : info.getPointRanges(info.getLevel(fraction), bounds))
        points += static_cast<double>(range.length);
    return points;
}

std::vector<std::uint64_t> VX7PointReader::countValues(const char* channel, ProgressDelegate* delegate) const
{
    constexpr std::size_t blockPoints = 16384;
    const WaveletDecoderInfo& info = getDecoderInfo();
    const ChannelInfo* const counted = getChannel(channel);
    if (!counted)
        QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
    if (counted->getDataType() != UINT8)
        QM_THROW(ErrorCode::ChannelType, "channel '%s' has another type in the source", channel);
    // Blocks of points have coordinates, but without a box nothing reads them.
    Scoped<WaveletDecoder> decoder(WaveletDecoder::create());
    PointInfo layout;
    for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z}) {
        ChannelInfo coordinate;
        coordinate.init(name, FLOAT64, 0, 0);
        layout.append(coordinate);
        decoder->skipChannel(name);
    }
    layout.append(*counted);
    decoder->init(info, Bounds::Huge(), 1.0, layout, m_verifiesDigests, delegate);
    PointData block;
    block.init(layout, blockPoints);
    const auto* const values = static_cast<const std::uint8_t*>(block.getChannel(channel)->getData());
    std::vector<std::uint64_t> counts(UINT8_MAX + 1);
    while (const std::size_t count = decoder->getNextPoints(block))
        for (std::size_t i = 0; i < count; ++i)
            ++counts[values[i]];
    return counts;
}

PointIterator* VX7PointReader::createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                              ProgressDelegate* delegate) const
{
    Scoped<WaveletDecoder> decoder(WaveletDecoder::create());
    decoder->init(getDecoderInfo(), bounds, fraction, layout, m_verifiesDigests, delegate);
    return decoder.detach();
}

PointIterator* VX7PointReader::createSampleIterator(double position, const PointInfo& layout) const
{
    const std::int64_t count = getDecoderInfo().getNumPoints();
    const auto first = static_cast<std::int64_t>(position * static_cast<double>(count));
    std::vector<WaveletDecoderInfo::PointRange> rest;
    if (count != 0) {
        const std::int64_t start = std::clamp<std::int64_t>(first, 0, count - 1);
        rest.push_back({start, count - start});
    }
    Scoped<WaveletDecoder> decoder(WaveletDecoder::create());
    decoder->takeOnly(0, std::move(rest), true);
    decoder->init(getDecoderInfo(), Bounds::Huge(), 1.0, layout, m_verifiesDigests, nullptr);
    return decoder.detach();
}

} // namespace Quillmoran
