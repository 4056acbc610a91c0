#include "decode/container/WaveletDecoderInfo.h"

#include "common/container/ChunkHeader.h"
#include "decode/container/BandTable.h"
#include "decode/container/ChunkReader.h"
#include "model/ChannelNames.h"
#include "platform/OpenIO.h"
#include "remote/RemoteError.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

constexpr std::uint32_t singleLengthVersion = 0x04000004;

} // namespace

WaveletDecoderInfo* WaveletDecoderInfo::create(std::uint32_t fileVersion)
{
    return new WaveletDecoderInfo(fileVersion);
}

void WaveletDecoderInfo::load(ChunkReader& reader, std::int64_t& remaining)
{
    m_file = Scoped<IO>::retained(reader.stream().getIO());
    ChunkHeader chunk;
    reader.readChunkHeader(chunk, remaining, CHUNK_WAVELET_HEADER, ErrorCode::WaveletHeaderRead);
    chunk.save(m_file.get(), m_chunks.header);
    m_digests.setWaveletHeader(m_chunks.header);
    ChunkReader::WaveletHeader header = reader.readWaveletHeader(chunk.length);
    m_numPoints = header.numPoints;
    m_numLevels = header.numLevels;
    m_channels = std::move(header.channels);
    for (const WaveletDecoderChannelInfo& channel : m_channels)
        m_largestSubblock = std::max(m_largestSubblock, channel.getSubblockSize());

    reader.readChunkHeader(chunk, remaining, CHUNK_INDEX, ErrorCode::IndexChunkRead);
    chunk.save(m_file.get(), m_chunks.index);
    m_digests.setIndex(m_chunks.index);
    m_pointsPerEntry = reader.readIndex(chunk.length, m_index);
    m_indexLength = chunk.length;
    readBands(reader, remaining);
}

void WaveletDecoderInfo::readBands(ChunkReader& reader, std::int64_t& remaining)
{
    m_hasPlacedBands = m_file->isRemote() && placeBands(reader, remaining);
    if (m_hasPlacedBands)
        return;
    // Bands are added as they are read: the counts of the header alone allocate nothing.
    for (std::size_t c = 0; c < m_channels.size(); ++c) {
        for (std::uint32_t level = 0; level < m_numLevels; ++level) {
            ChunkHeader chunk;
            reader.readChunkHeader(chunk, remaining, CHUNK_SUBBAND, ErrorCode::SubbandRead);
            WaveletDecoderChannelInfo::Band& band = m_channels[c].getBands().emplace_back();
            reader.readSubband(chunk.length, static_cast<std::uint32_t>(c), level, band.first, band.second);
        }
    }
}

bool WaveletDecoderInfo::placeBands(ChunkReader& reader, std::int64_t& remaining)
{
    constexpr std::int64_t headBytes = ChunkHeader::size + 21; // before the bytes of a band
    const std::optional<BandTable> table = BandTable::read(*m_file);
    if (!table || table->numChannels != m_channels.size() || table->numBands != m_numLevels)
        return false;
    std::int64_t at = reader.stream().tell();
    const std::int64_t available = std::min(remaining, m_file->size() - at);
    std::int64_t left = available;
    for (const BandTable::Sizes& sizes : table->bands) {
        for (const std::int64_t size : {headBytes, sizes.data, sizes.headers}) {
            if (size > left)
                return false;
            left -= size;
        }
    }
    for (std::size_t i = 0; i < table->bands.size(); ++i) {
        const BandTable::Sizes& sizes = table->bands[i];
        WaveletDecoderChannelInfo::Band& band = m_channels[i / m_numLevels].getBands().emplace_back();
        band.second.set(m_file.get(), at + headBytes, sizes.data);
        band.first.set(m_file.get(), at + headBytes + sizes.data, sizes.headers);
        at += headBytes + sizes.data + sizes.headers;
    }
    remaining -= available - left;
    reader.stream().seek(at, Stream::SEEK_FROM_START);
    return true;
}

bool WaveletDecoderInfo::hasGoodBandTable() const
{
    const OpenIO file(m_file.get());
    const std::optional<BandTable> table = BandTable::read(*file);
    BandTable actual{m_channels.size(), m_numLevels, {}};
    for (const WaveletDecoderChannelInfo& channel : m_channels)
        for (const WaveletDecoderChannelInfo::Band& band : channel.getBands())
            actual.bands.push_back({band.second.length(), band.first.length()});
    return !table || *table == actual;
}

void WaveletDecoderInfo::finish()
{
    indexNames();
    m_bounds.x = getAxisBounds(ChannelNames::x, &Bounds::x);
    m_bounds.y = getAxisBounds(ChannelNames::y, &Bounds::y);
    m_bounds.z = getAxisBounds(ChannelNames::z, &Bounds::z);
    // The writers of tables do not swap the ranges of a band.
    if (!m_hasPlacedBands || isBeforeSingleLengths())
        m_bandLayout = BandLayout::detect(*this);
}

void WaveletDecoderInfo::indexNames()
{
    m_wholes = m_fractions = m_exponents = m_signs = NameIndex();
    m_pointChannels.clear();
    m_numPointChannels = 0;
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        const WaveletChannelInfo& channel = m_channels[i];
        const ChannelPart part = channel.getPart();
        const bool isFirst = part != ChannelPart::Exponent && part != ChannelPart::Sign;
        m_pointChannels.push_back(isFirst ? m_numPointChannels++ : m_numPointChannels);
        NameIndex& index = part == ChannelPart::Whole      ? m_wholes
                           : part == ChannelPart::Exponent ? m_exponents
                           : part == ChannelPart::Sign     ? m_signs
                                                           : m_fractions;
        index.add(channel.getPointName(), i);
    }
    for (NameIndex* index : {&m_wholes, &m_fractions, &m_exponents, &m_signs})
        index->finish();
}

Bounds WaveletDecoderInfo::getIndexBounds() const
{
    try {
        return m_index->getBounds();
    } catch (const Error& error) {
        if (isRemoteError(error))
            throw;
        return Bounds::Huge(); // an index without boxes
    }
}

Bounds::Range WaveletDecoderInfo::getAxisBounds(const char* name, Bounds::Range Bounds::*axis) const
{
    const auto index = getChannel(name);
    if (!index)
        return getIndexBounds().*axis;
    const WaveletChannelInfo& channel = m_channels[*index];
    if (TransformUtils::isFloatingPoint(channel.getTransformType()))
        return {channel.getMinimum().real, channel.getMaximum().real};
    const auto toCoordinate = [&channel](std::int64_t value) {
        return static_cast<double>(value) * channel.getScale() + channel.getOffset();
    };
    return {toCoordinate(channel.getMinimum().integer), toCoordinate(channel.getMaximum().integer)};
}

PointInfo WaveletDecoderInfo::getPointInfo() const
{
    PointInfo layout;
    for (const WaveletDecoderChannelInfo& channel : m_channels) {
        const ChannelPart part = channel.getPart();
        if (part == ChannelPart::Exponent || part == ChannelPart::Sign)
            continue; // they belong to their fraction
        ChannelInfo info;
        if (part == ChannelPart::Whole)
            info.init(channel.getName(), channel.getDataType(), std::max(channel.getBits(), 1),
                      channel.getScale());
        else
            info.init(channel.getPointName(), part == ChannelPart::Fraction64 ? FLOAT64 : FLOAT32, 0, 0);
        layout.append(info);
    }
    return layout;
}

const WaveletDecoderChannelInfo& WaveletDecoderInfo::getChannel(std::size_t index) const
{
    if (index >= m_channels.size())
        QM_THROW(ErrorCode::NoSuchChannel, "bad channel index");
    return m_channels[index];
}

std::optional<std::size_t> WaveletDecoderInfo::getChannel(const char* name) const
{
    return m_wholes.find(name);
}

std::optional<WaveletDecoderInfo::SplitChannel> WaveletDecoderInfo::getSplitChannel(const char* name) const
{
    const auto fraction = m_fractions.find(name);
    const auto exponent = m_exponents.find(name);
    const auto sign = m_signs.find(name);
    if (!fraction || !exponent || !sign)
        return std::nullopt;
    return SplitChannel{*fraction, *exponent, *sign};
}

std::int64_t WaveletDecoderInfo::getNumSamples(std::uint32_t level) const noexcept
{
    return ((m_numPoints - 1) >> std::min(level, 63u)) + 1;
}

std::uint32_t WaveletDecoderInfo::getLevel(double fraction) const noexcept
{
    const double level = std::floor(-std::log(fraction) / std::log(2.0));
    if (!(level > 0))
        return 0;
    return static_cast<std::uint32_t>(std::min(level, static_cast<double>(m_numLevels - 1)));
}

bool WaveletDecoderInfo::needsIndex(const Bounds& bounds) const noexcept
{
    return m_numPoints != 0 && !bounds.contains(m_bounds) && m_index->getCount() != 0;
}

std::vector<WaveletDecoderInfo::PointRange> WaveletDecoderInfo::getPointRanges(std::uint32_t level,
                                                                               const Bounds& bounds) const
{
    if (m_numPoints == 0)
        return {};
    const PointRange everything{0, getNumSamples(level)};
    if (!needsIndex(bounds))
        return {everything};

    std::vector<PointRange> ranges;
    std::size_t joinAt = std::size_t{1} << 16;
    std::uint64_t matches = 0;
    const Scoped<RTree::Iterator> entries(m_index->createIterator());
    const auto numPoints = static_cast<std::uint64_t>(m_numPoints);
    for (std::int64_t value = 0; entries->next(bounds, value);) {
        ++matches;
        // An entry that begins after the last point has no points.
        std::uint64_t start;
        if (value < 0 ||
            __builtin_mul_overflow(static_cast<std::uint64_t>(value), m_pointsPerEntry, &start) ||
            start >= numPoints)
            continue;
        const std::uint64_t length = std::min<std::uint64_t>(m_pointsPerEntry, numPoints - start);
        ranges.push_back({static_cast<std::int64_t>(start), static_cast<std::int64_t>(length)});
        // Ranges are joined early, so that memory does not grow with the number of entries in the box.
        if (ranges.size() >= joinAt) {
            merge(ranges);
            joinAt = std::max(joinAt, 2 * ranges.size());
        }
    }
    if (matches == m_index->getCount())
        return {everything};

    merge(ranges);
    for (std::uint32_t step = 0; step < level; ++step) {
        for (PointRange& range : ranges) {
            // Unsigned, because the sums may exceed 2^63.
            const std::uint64_t end = (static_cast<std::uint64_t>(range.start + range.length) + 1) / 2;
            range.start = static_cast<std::int64_t>((static_cast<std::uint64_t>(range.start) + 1) / 2);
            range.length = static_cast<std::int64_t>(end) - range.start;
        }
        merge(ranges);
    }
    ranges.erase(std::remove_if(ranges.begin(), ranges.end(),
                                [](const PointRange& range) { return range.length == 0; }),
                 ranges.end());
    return ranges;
}

void WaveletDecoderInfo::merge(std::vector<PointRange>& ranges) const
{
    // Ranges of a coarser level are already in order.
    const auto comesFirst = [](const PointRange& a, const PointRange& b) { return a.start < b.start; };
    if (!std::is_sorted(ranges.begin(), ranges.end(), comesFirst))
        std::sort(ranges.begin(), ranges.end(), comesFirst);
    std::size_t merged = 0; // ranges [0, merged) are done; only the last of them may still grow
    for (const PointRange& range : ranges) {
        if (merged != 0) {
            PointRange& last = ranges[merged - 1];
            const std::int64_t gap = range.start - (last.start + last.length);
            if (gap <= static_cast<std::int64_t>(m_largestSubblock)) {
                last.length = std::max(last.start + last.length, range.start + range.length) - last.start;
                continue;
            }
        }
        ranges[merged++] = range;
    }
    ranges.resize(merged);
}

BandRanges WaveletDecoderInfo::getBandRanges(const WaveletDecoderChannelInfo& channel,
                                             std::size_t index) const
{
    const WaveletDecoderChannelInfo::Band& band = channel.getBands()[index];
    if (!band.first.io())
        return {band.second, band.second, true};
    const bool swapped = m_bandLayout.singleRange ? band.first.length() == 0 : m_bandLayout.swapped;
    return swapped ? BandRanges{band.second, band.first} : BandRanges{band.first, band.second};
}

bool WaveletDecoderInfo::isBeforeSingleLengths() const noexcept
{
    return m_fileVersion < singleLengthVersion;
}

SubblockFormat WaveletDecoderInfo::getSubblockFormat(const WaveletDecoderChannelInfo& channel) const
{
    const TransformType transform = channel.getTransformType();
    const bool perPlaneLengths = isBeforeSingleLengths() && (TransformUtils::isWavelet(transform) ||
                                                             m_bandLayout.planeLengthsWithoutLifting);
    return {channel.getKernelDataType(), transform, channel.getSubblockSize(), perPlaneLengths};
}

} // namespace Quillmoran
