#include "rewrite/VX7Rewriter.h"

#include "decode/container/WaveletDecoderInfo.h"
#include "encode/container/BaseChunkWriter.h"
#include "files/OutputFile.h"
#include "index/DiskRTree.h"
#include "model/NameIndex.h"
#include "platform/OpenIO.h"
#include "text/TextDecimals.h"
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <utility>

namespace Quillmoran {

namespace {

constexpr const char* copying = "copying VX7 file";
constexpr std::int64_t copyBytes = 8 << 20; // between two reports of the progress

using Band = WaveletDecoderChannelInfo::Band;

// Of the coded bytes; the two ranges are adjacent.
std::int64_t sizeOf(const Band& band)
{
    return band.first.length() + band.second.length();
}

std::int64_t sizeOf(const WaveletDecoderChannelInfo& channel)
{
    std::int64_t size = 0;
    for (const Band& band : channel.getBands())
        size += sizeOf(band);
    return size;
}

// The byte at a position of a file that is open: the version of a chunk.
std::uint8_t readVersion(const IO& file, std::int64_t position)
{
    std::uint8_t version = 0;
    if (readFully(file, position, &version, 1) != 1)
        QM_THROW(ErrorCode::ContainerRead, "unexpected end of file");
    return version;
}

} // namespace

// One call of write().
class VX7Rewriter::Copy : private BaseChunkWriter
{
public:
    Copy(IO* io, const VX7Rewriter& rewriter, double pointsPerByte, ProgressDelegate* delegate)
        : BaseChunkWriter(
              io, static_cast<std::uint8_t>(rewriter.m_source->getDecoderInfo().getFileVersion() & 0xFF)),
          m_rewriter(rewriter),
          m_info(rewriter.m_source->getDecoderInfo()),
          m_file(m_info.getFile()),
          m_pointsPerByte(pointsPerByte),
          m_delegate(delegate)
    {}

    void write(const std::optional<Digests>& digests)
    {
        writeFile([&] { writeGroup(digests); });
    }

private:
    void writeGroup(const std::optional<Digests>& digests);
    void writeIndex();
    void writeBand(std::size_t channel, std::size_t level, const Band& band);
    void copyChunk(std::uint32_t id, const IO::Location& chunk);
    // Copies a byte range of the source.
    void copyRange(StreamWriter& out, std::int64_t offset, std::int64_t length);

    const VX7Rewriter& m_rewriter;
    const WaveletDecoderInfo& m_info;
    OpenIO m_file;
    double m_pointsPerByte; // of the bands
    ProgressDelegate* m_delegate;
};

void VX7Rewriter::Copy::writeGroup(const std::optional<Digests>& digests)
{
    const auto& chunks = m_info.getChunks();
    Records records;
    for (const std::size_t record : m_rewriter.m_records)
        records.push_back(&m_info.getChannels()[record]);
    writeWaveletHeader(readVersion(*m_file, chunks.header.offset() + ChunkHeader::size),
                       m_info.getNumPoints(), m_info.getNumLevels(), records);
    writeIndex();
    for (std::size_t c = 0; c < records.size(); ++c) {
        const std::vector<Band>& bands = m_info.getChannels()[m_rewriter.m_records[c]].getBands();
        for (std::size_t level = 0; level < bands.size(); ++level)
            writeChunk(CHUNK_SUBBAND, [&] { writeBand(c, level, bands[level]); });
    }
    if (const auto& metadata = m_rewriter.m_options.metadata)
        writeChunk(CHUNK_METADATA, m_description, [&](StreamWriter& out) { metadata->write(out); });
    else
        copyChunk(CHUNK_METADATA, chunks.metadata);
    if (const auto& wkt = m_rewriter.m_options.wkt)
        writeWKT(wkt->empty() ? nullptr : wkt->c_str());
    else
        copyChunk(CHUNK_WKT, chunks.wkt);
    if (chunks.classNames.io())
        copyChunk(CHUNK_CLASS_NAMES, chunks.classNames);
    writeExtendedHeader(records);
    if (digests)
        writeDigests(digests->blockBits, m_info.getNumPoints(), m_rewriter.m_pointChannels.size(),
                     digests->samples);
    writeBandTable(records.size(), m_info.getNumLevels());
}

// A tree holds positions, which change if the header becomes shorter.
void VX7Rewriter::Copy::writeIndex()
{
    const IO::Location& index = m_info.getChunks().index;
    const auto* const tree = dynamic_cast<const DiskRTree*>(&m_info.getIndex());
    if (!tree)
        return copyChunk(CHUNK_INDEX, index);
    writeChunk(CHUNK_INDEX, m_index, [&](StreamWriter& out) {
        constexpr std::int64_t headBytes = 5; // version and points per entry
        copyRange(out, index.offset() + ChunkHeader::size, headBytes);
        tree->copyTo(out);
    });
}

void VX7Rewriter::Copy::writeBand(std::size_t channel, std::size_t level, const Band& band)
{
    // Before the coded bytes are version, channel and band, and in newer versions the two lengths.
    constexpr std::int64_t headBytes = 5;
    constexpr std::int64_t lengthBytes = 16;
    const bool hasLengths = band.first.io() != nullptr;
    const std::int64_t begin = band.second.offset();
    m_out.put_be(readVersion(*m_file, begin - headBytes - (hasLengths ? lengthBytes : 0)));
    m_out.put_be(static_cast<std::uint16_t>(channel));
    m_out.put_be(static_cast<std::uint16_t>(level));
    if (hasLengths) {
        addBand(band.second.length(), band.first.length());
        m_out.put_be(band.second.length());
        m_out.put_be(band.first.length());
    }
    const std::int64_t end = begin + sizeOf(band);
    for (std::int64_t at = begin; at < end;) {
        if (m_delegate && m_delegate->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "VX7 Write operation cancelled.");
        const std::int64_t count = std::min(end - at, copyBytes);
        copyRange(m_out, at, count);
        at += count;
        if (m_delegate)
            m_delegate->updateCompleted(static_cast<double>(count) * m_pointsPerByte, copying);
    }
}

void VX7Rewriter::Copy::copyChunk(std::uint32_t id, const IO::Location& chunk)
{
    writeChunk(id, id == CHUNK_INDEX ? m_index : m_description, [&](StreamWriter& out) {
        copyRange(out, chunk.offset() + ChunkHeader::size, chunk.length() - ChunkHeader::size);
    });
}

void VX7Rewriter::Copy::copyRange(StreamWriter& out, std::int64_t offset, std::int64_t length)
{
    if (!out.copy(m_info.getFile(), offset, length))
        QM_THROW(ErrorCode::ContainerRead, "unexpected end of file");
}

VX7Rewriter::VX7Rewriter(const VX7PointReader& source, RewriteOptions options)
    : m_source(Scoped<const VX7PointReader>::retained(&source)), m_options(std::move(options))
{
    const PointInfo& layout = m_options.channels ? *m_options.channels : source.getPointInfo();
    if (!layout.hasValidXYZ() || !source.getPointInfo().hasValidXYZ())
        QM_THROW(ErrorCode::InvalidArgument, "must have x, y, and z channels");
    chooseRecords();
    chooseMetadata();
}

// All records of a channel: the parts of a split channel belong together.
void VX7Rewriter::chooseRecords()
{
    const auto& records = m_source->getDecoderInfo().getChannels();
    const PointInfo& layout = m_source->getPointInfo();
    const NameIndex kept(m_options.channels ? *m_options.channels : layout);
    for (std::size_t i = 0; i < records.size(); ++i)
        if (kept.find(records[i].getPointName()))
            m_records.push_back(i);
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (kept.find(layout.getChannel(i).getName()))
            m_pointChannels.push_back(i);
}

// Removes what describes channels that are left out.
void VX7Rewriter::chooseMetadata()
{
    if (!m_options.channels)
        return;
    Metadata metadata;
    if (m_options.metadata)
        metadata = *m_options.metadata;
    else
        m_source->loadMetadata(metadata, false);
    if (TextDecimals::removeOthers(metadata, *m_options.channels))
        m_options.metadata = std::move(metadata);
}

std::int64_t VX7Rewriter::write(const char* path, ProgressDelegate* delegate)
{
    OutputFile output("VX7", OutputFile::SEEKABLE);
    output.init(path);
    return write(output, delegate);
}

std::int64_t VX7Rewriter::write(IO* io, ProgressDelegate* delegate)
{
    OutputFile output("VX7", OutputFile::SEEKABLE);
    output.init(io);
    return write(output, delegate);
}

std::int64_t VX7Rewriter::write(OutputFile& output, ProgressDelegate* delegate)
{
    const WaveletDecoderInfo& info = m_source->getDecoderInfo();
    const auto numPoints = static_cast<double>(info.getNumPoints());
    if (delegate)
        delegate->setTotal(numPoints);
    double numBytes = 0;
    for (const std::size_t record : m_records)
        numBytes += static_cast<double>(sizeOf(info.getChannels()[record]));
    output.create();
    const std::optional<Digests> digests = keepDigests();
    if (delegate && info.getDigests().exist() && !digests)
        delegate->warning("the digests have an unknown version and are not kept");
    Copy(&output.open(), *this, numBytes == 0 ? 0 : numPoints / numBytes, delegate).write(digests);
    const std::int64_t size = output.io().size();
    output.commit();
    return size;
}

std::optional<VX7Rewriter::Digests> VX7Rewriter::keepDigests() const
{
    const WaveletDecoderInfo& info = m_source->getDecoderInfo();
    const StoredDigests& stored = info.getDigests();
    stored.verifyDescription();
    stored.verifyIndex();
    const auto* const all = stored.getSamples(info.getNumPoints(), info.getNumPointChannels());
    if (!all)
        return std::nullopt;
    Digests kept{all->blockBits, {}};
    for (const std::size_t channel : m_pointChannels)
        for (std::size_t block = 0; block < all->numBlocks; ++block)
            kept.samples.push_back(all->get(channel, static_cast<std::int64_t>(block)));
    return kept;
}

std::vector<VX7PointWriter::ChannelSummary> VX7Rewriter::getSummary() const
{
    std::vector<VX7PointWriter::ChannelSummary> summary;
    for (const std::size_t index : m_records) {
        const WaveletDecoderChannelInfo& record = m_source->getDecoderInfo().getChannels()[index];
        summary.push_back({record.getName(), record.getTransformType(), record.getSubblockSize(),
                           record.getScale(), record.getOffset(), sizeOf(record)});
    }
    return summary;
}

} // namespace Quillmoran
