#include "decode/WaveletDecoder.h"

#include "common/ParallelLoop.h"
#include "framework/ProgressDelegate.h"
#include "platform/Base.h"

#include <algorithm>
#include <cmath>

namespace Quillmoran {

namespace {

// Points per block: enough work per task for the scheduler to vanish, small enough to stay in the caches.
constexpr std::size_t blockPoints = 16384;
// Coarser stages see fewer samples; their windows shrink with them down to this.
constexpr std::size_t smallestStageBlock = 64;

} // namespace

WaveletDecoder* WaveletDecoder::create()
{
    return new WaveletDecoder;
}

WaveletDecoder::~WaveletDecoder()
{
    end();
}

void WaveletDecoder::init(const WaveletDecoderInfo& info, const Bounds& bounds, double fraction,
                          const PointInfo& layout, ProgressDelegate* delegate)
{
    m_info = Scoped<const WaveletDecoderInfo>::retained(&info);
    const bool nothing = !(fraction > 0);
    m_level = nothing ? 0 : info.getLevel(fraction);
    // The level has thinned the points by powers of two; the sampling does the rest.
    PointIterator::init(bounds, std::ldexp(fraction, static_cast<int>(m_level)), layout, delegate);
    selectChannels(layout);
    if (!nothing)
        m_ranges = info.getPointRanges(m_level, getBounds());
    m_block.init(layout, static_cast<std::size_t>(std::min<std::int64_t>(
                             blockPoints, std::max<std::int64_t>(info.getNumPoints(), 1))));
    begin(m_ranges.empty() ? 0 : m_ranges.front().start);
}

void WaveletDecoder::selectChannels(const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const char* name = wanted.getName() ? wanted.getName() : "";
        const DataType type = wanted.getDataType();
        if (const auto whole = m_info->getChannel(name)) {
            const DataType stored = m_info->getChannel(*whole).getDataType();
            if (!DataTypeUtils::isKnown(type) || !DataTypeUtils::isKnown(stored) ||
                DataTypeUtils::isFloat(type) != DataTypeUtils::isFloat(stored))
                QM_THROW(-1, "unsupported datatype");
            addChannel(*whole, CONVERT_PLAIN, i);
        } else if (const auto split = m_info->getSplitChannel(name)) {
            if (!isMergeable(*split, type))
                QM_THROW(-1, "unsupported datatype");
            addChannel(split->fraction, CONVERT_MERGE, i);
            addChannel(split->exponent, CONVERT_MERGE, i);
            addChannel(split->sign, CONVERT_MERGE, i);
        } else {
            QM_THROW(-1, "could not find channel '%s'", name);
        }
    }
}

// A damaged file can give the parts any kernel; merging takes the fraction's from its prefix.
bool WaveletDecoder::isMergeable(const WaveletDecoderInfo::SplitChannel& split, DataType wanted) const
{
    const WaveletDecoderChannelInfo& fraction = m_info->getChannel(split.fraction);
    const bool narrow = fraction.nameBehind(WaveletChannelInfo::fraction32Prefix) != nullptr;
    const auto hasIntegers = [this](std::size_t part) {
        return TransformUtils::isInteger(m_info->getChannel(part).getTransformType());
    };
    return wanted == (narrow ? FLOAT32 : FLOAT64) &&
           fraction.getKernelDataType() == (narrow ? SINT32 : SINT64) && hasIntegers(split.exponent) &&
           hasIntegers(split.sign);
}

void WaveletDecoder::addChannel(std::size_t fileChannel, ConversionAction action, std::size_t pointChannel)
{
    Channel& added = m_channels.emplace_back();
    added.info = m_info->getChannel(fileChannel);
    added.info.setupConvert(action, static_cast<int>(pointChannel));
}

void WaveletDecoder::buildPipeline(Channel& channel)
{
    const WaveletDecoderChannelInfo& info = channel.info;
    channel.reader = SubblockReader::create(info.getKernelDataType(), info.getTransformType(), info.getName(),
                                            info.getSubblockSize(), m_info->hasPlaneLengths(info));
    channel.reader->init();

    const std::uint32_t coarsest = m_info->getNumLevels() - 1;
    channel.root = SubbandSource::createSubbandReader(
        *channel.reader, 0, false, m_info->getBandStretches(info, 0), m_info->getNumSamples(coarsest));
    for (std::uint32_t band = 1; band + m_level <= coarsest; ++band) {
        const std::uint32_t level = coarsest - band; // what the stage delivers
        const std::int64_t highSamples = m_info->getNumSamples(level) / 2;
        // A level of one sample passes through as it is. Damaged files can have thousands of those.
        if (highSamples == 0)
            continue;
        auto high = SubbandSource::createSubbandReader(*channel.reader, band - 1, true,
                                                       m_info->getBandStretches(info, band), highSamples);
        const std::size_t block =
            std::max(blockPoints / 2 >> std::min(level - m_level, 31u), smallestStageBlock);
        channel.root = SubbandSource::createPipeStage(block, std::move(channel.root), std::move(high));
    }
}

void WaveletDecoder::begin(std::int64_t position)
{
    for (Channel& channel : m_channels) {
        buildPipeline(channel);
        channel.root->begin(position);
    }
}

void WaveletDecoder::seek(std::int64_t position)
{
    for (Channel& channel : m_channels)
        channel.root->seek(position);
}

void WaveletDecoder::end()
{
    for (Channel& channel : m_channels) {
        channel.root.reset();
        channel.reader.reset();
    }
}

void WaveletDecoder::decodeChannel(Channel& channel, std::size_t count)
{
    channel.info.reserveKernel(count);
    const std::size_t got = channel.root->get(channel.info.getKernel().getData(), count);
    if (got != count)
        QM_THROW(40207, "bad read -- subblock data");
    channel.info.convertFromKernel(m_block, count);
}

void WaveletDecoder::decode(std::size_t count)
{
    // Each task writes one channel of the block and reads through streams of its own.
    parallelLoop(m_channels.size(), [this, count](std::size_t i) { decodeChannel(m_channels[i], count); });
    for (std::size_t i = 0; i < m_channels.size(); ++i) {
        if (m_channels[i].info.getAction() == CONVERT_MERGE) {
            m_channels[i].info.mergeFromKernel(m_channels[i + 1].info, m_channels[i + 2].info, m_block,
                                               count);
            i += 2;
        }
    }
}

bool WaveletDecoder::refill()
{
    m_cursor = m_fill = 0;
    while (m_range < m_ranges.size() && m_ranges[m_range].length == 0) {
        if (++m_range < m_ranges.size())
            seek(m_ranges[m_range].start);
    }
    if (m_range == m_ranges.size())
        return false;
    if (getDelegate() && getDelegate()->getCancelled())
        QM_THROW(40006, "operation cancelled.");
    WaveletDecoderInfo::PointRange& range = m_ranges[m_range];
    const auto count = static_cast<std::size_t>(
        std::min<std::uint64_t>(static_cast<std::uint64_t>(range.length), m_block.getNumSamples()));
    decode(count);
    range.start += static_cast<std::int64_t>(count);
    range.length -= static_cast<std::int64_t>(count);
    m_fill = count;
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(count), "reading VX7 file");
    return true;
}

std::size_t WaveletDecoder::getNextPoints(PointData& buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.getNumSamples()) {
        if (m_cursor == m_fill && !refill())
            break;
        filled = takeKept(m_block.getX(), m_block.getY(), m_block.getZ(), m_cursor, m_fill, filled,
                          buffer.getNumSamples(), [&](std::size_t to, std::size_t first, std::size_t count) {
                              PointData::copy(buffer, to, m_block, first, count);
                          });
    }
    return filled;
}

} // namespace Quillmoran
