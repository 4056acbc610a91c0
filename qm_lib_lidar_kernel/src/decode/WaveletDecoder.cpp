#include "decode/WaveletDecoder.h"

#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace Quillmoran {

namespace {

// Points per block: few enough to stay in the caches. The longest subblock is a twentieth of the work of a
// block of common channels, so a few threads can share a block; many threads need larger blocks.
constexpr std::size_t usualBlockPoints = 16384;
constexpr std::size_t threadsPerBlock = 4;
constexpr std::size_t maxBlocks = 16;
// The block that the caller takes and those that are being decoded. A second one keeps threads busy that have
// completed their part of the first one; few threads do not need it.
constexpr std::size_t fewBlocksAtATime = 2;
constexpr std::size_t blocksAtATime = 3;
// The memory of a block's points and kernel samples; only points with hundreds of channels reach it.
constexpr std::size_t blockBytes = std::size_t{16} << 20;
// Coarser stages have fewer samples, and smaller windows down to this size.
constexpr std::size_t smallestStageBlock = 64;

// The chains of a query may use this memory plus this multiple of the file's size. The first is enough for a
// million points of sixty channels in one subblock, the second for samples compressed to a sixteenth. Files
// with common subblock sizes need far less.
constexpr std::uint64_t freeMemory = std::uint64_t{512} << 20;
constexpr std::uint64_t memoryPerFileByte = 16;
// Approximate size of the objects of a channel and of a level.
constexpr std::uint64_t channelBytes = 1024;
constexpr std::uint64_t levelBytes = 1536;

} // namespace

WaveletDecoder* WaveletDecoder::create()
{
    return new WaveletDecoder;
}

WaveletDecoder::~WaveletDecoder() = default;

void WaveletDecoder::init(const WaveletDecoderInfo& info, const Bounds& bounds, double fraction,
                          const PointInfo& layout, bool verifies, ProgressDelegate* delegate)
{
    m_info = Scoped<const WaveletDecoderInfo>::retained(&info);
    const bool isEmpty = !m_chosen && !(fraction > 0);
    m_level = m_chosen ? m_chosen->level : isEmpty ? 0 : info.getLevel(fraction);
    // The level reduces the points by a power of two; the sampling does the rest.
    const double sampling = m_chosen ? 1 : std::ldexp(fraction, static_cast<int>(m_level));
    PointIterator::init(bounds, sampling, layout, delegate);
    m_file.emplace(info.getFile());
    if ((*m_file)->isRemote() && !isEmpty) {
        m_plan = std::make_unique<ReadPlan>(info, m_level);
        ReadPlan::announceDescription(info, m_chosen ? Bounds::Huge() : getBounds(), verifies);
    }
    if (verifies && !isEmpty)
        verifyDescription();
    selectChannels(layout);
    if (m_chosen)
        m_ranges = m_chosen->ranges;
    else if (!isEmpty)
        m_ranges = info.getPointRanges(m_level, getBounds());
    m_blocks = std::vector<Block>(getNumThreads() < threadsPerBlock ? fewBlocksAtATime : blocksAtATime);
    for (Block& block : m_blocks)
        block.points.init(layout, getBlockPoints(layout));
    if (m_digests)
        addVerifiers();
    addLanes();
    begin(m_ranges.empty() ? 0 : m_ranges.front().start);
    if (m_plan)
        m_plan->start(m_ranges, getSamplePoints(layout));
}

std::int64_t WaveletDecoder::getSamplePoints(const PointInfo& layout) const
{
    if (!m_chosen)
        return 0;
    if (m_chosen->isSample)
        return static_cast<std::int64_t>(m_blocks.size() * getBlockPoints(layout));
    return std::accumulate(m_ranges.begin(), m_ranges.end(), std::int64_t{0},
                           [](std::int64_t sum, const auto& range) { return sum + range.length; });
}

void WaveletDecoder::selectChannels(const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& wanted = layout.getChannel(i);
        const char* name = wanted.getName() ? wanted.getName() : "";
        const DataType type = wanted.getDataType();
        if (std::find(m_skipped.begin(), m_skipped.end(), name) != m_skipped.end())
            continue;
        if (const auto whole = m_info->getChannel(name)) {
            const DataType stored = m_info->getChannel(*whole).getDataType();
            if (!DataTypeUtils::isKnown(type) || !DataTypeUtils::isKnown(stored) ||
                DataTypeUtils::isFloat(type) != DataTypeUtils::isFloat(stored))
                QM_THROW(ErrorCode::General, "unsupported datatype");
            addChannel(*whole, i);
        } else if (const auto split = m_info->getSplitChannel(name)) {
            if (!isMergeable(*split, type))
                QM_THROW(ErrorCode::General, "unsupported datatype");
            addChannel(split->fraction, i);
            addChannel(split->exponent, i);
            addChannel(split->sign, i);
        } else {
            QM_THROW(ErrorCode::General, "could not find channel '%s'", name);
        }
    }
}

// The parts of a damaged file can have any kernel. Merging uses the width of the fraction's prefix.
bool WaveletDecoder::isMergeable(const WaveletDecoderInfo::SplitChannel& split, DataType wanted) const
{
    const WaveletDecoderChannelInfo& fraction = m_info->getChannel(split.fraction);
    const bool narrow = fraction.getPart() == ChannelPart::Fraction32;
    const auto hasIntegers = [this](std::size_t part) {
        return TransformUtils::isInteger(m_info->getChannel(part).getTransformType());
    };
    return wanted == (narrow ? FLOAT32 : FLOAT64) &&
           fraction.getKernelDataType() == (narrow ? SINT32 : SINT64) && hasIntegers(split.exponent) &&
           hasIntegers(split.sign);
}

void WaveletDecoder::addChannel(std::size_t fileChannel, std::size_t pointChannel)
{
    Channel& added = m_channels.emplace_back();
    added.record = &m_info->getChannel(fileChannel);
    added.pointChannel = pointChannel;
    added.conversion.setupConvert(*added.record, pointChannel);
}

std::size_t WaveletDecoder::getBlockPoints(const PointInfo& layout) const
{
    std::size_t pointBytes = layout.getPointSize();
    for (const Channel& channel : m_channels)
        pointBytes += DataTypeUtils::getSize(channel.record->getKernelDataType());
    const std::size_t wanted =
        usualBlockPoints * std::clamp<std::size_t>(getNumThreads() / threadsPerBlock, 1, maxBlocks);
    const std::size_t maxPoints = std::clamp<std::size_t>(blockBytes / pointBytes, 1, wanted);
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(m_info->getNumPoints(), 1, static_cast<std::int64_t>(maxPoints)));
}

void WaveletDecoder::buildPipeline(Channel& channel)
{
    const WaveletDecoderChannelInfo& record = *channel.record;
    m_budget.take(channelBytes + levelBytes);
    channel.reader = SubblockReader::create(m_info->getSubblockFormat(record));
    channel.reader->setBudget(&m_budget);
    channel.reader->init();

    const std::uint32_t coarsest = m_info->getNumLevels() - 1;
    const std::int64_t lowSamples = m_info->getNumSamples(coarsest);
    channel.root =
        SubbandSource::createSubbandReader(*channel.reader, planBand(channel, 0, lowSamples), lowSamples);
    for (std::uint32_t band = 1; band + m_level <= coarsest; ++band) {
        const std::uint32_t level = coarsest - band; // of the samples that the stage delivers
        const std::int64_t highSamples = m_info->getNumSamples(level) / 2;
        // A level of one sample needs no stage. Damaged files can have thousands of such levels.
        if (highSamples == 0)
            continue;
        auto high = SubbandSource::createSubbandReader(*channel.reader, planBand(channel, band, highSamples),
                                                       highSamples);
        const std::size_t largest = std::max<std::size_t>(m_blocks[0].points.getNumSamples() / 2, 1);
        const std::size_t block =
            std::max(largest >> std::min(level - m_level, 31u), std::min(largest, smallestStageBlock));
        m_budget.take(levelBytes + 2 * block * DataTypeUtils::getSize(record.getKernelDataType()));
        channel.root = SubbandSource::createPipeStage(block, std::move(channel.root), std::move(high));
    }
}

BandRanges WaveletDecoder::planBand(const Channel& channel, std::size_t band, std::int64_t numSamples)
{
    BandRanges ranges = m_info->getBandRanges(*channel.record, band);
    if (m_plan)
        m_plan->addBand(*channel.reader, band, numSamples, ranges, m_budget);
    return ranges;
}

void WaveletDecoder::begin(std::int64_t position)
{
    if (m_channels.empty())
        return;
    constexpr auto largestFile = static_cast<std::int64_t>(UINT64_MAX / memoryPerFileByte / 2);
    const auto fileBytes =
        static_cast<std::uint64_t>(std::clamp<std::int64_t>((*m_file)->size(), 0, largestFile));
    m_budget.reset(freeMemory + memoryPerFileByte * fileBytes);
    for (Channel& channel : m_channels) {
        buildPipeline(channel);
        channel.root->begin(position);
    }
}

void WaveletDecoder::verifyDescription()
{
    const StoredDigests& digests = m_info->getDigests();
    digests.verifyDescription();
    if (!m_chosen && m_info->needsIndex(getBounds()))
        digests.verifyIndex();
    if (m_level == 0)
        m_digests = digests.getSamples(m_info->getNumPoints(), m_info->getNumPointChannels());
}

void WaveletDecoder::addVerifiers()
{
    const PointInfo stored = m_info->getPointInfo();
    const PointData& points = m_blocks[0].points;
    for (Channel& channel : m_channels) {
        const ChannelPart part = channel.record->getPart();
        if (part == ChannelPart::Exponent || part == ChannelPart::Sign)
            continue;
        const auto record = static_cast<std::size_t>(channel.record - m_info->getChannels().data());
        const std::size_t fileChannel = m_info->getPointChannel(record);
        channel.verifier = std::make_unique<Verifier>(m_digests->blockBits, fileChannel);
        const ChannelInfo& info = stored.getChannel(fileChannel);
        if (points.getChannel(channel.pointChannel).getDataType() != info.getDataType())
            channel.verifier->converted.init(info, points.getNumSamples());
    }
}

void WaveletDecoder::verifySamples(Channel& channel, const Block& block) const
{
    Verifier& verifier = *channel.verifier;
    const ChannelData* samples = &block.points.getChannel(channel.pointChannel);
    if (verifier.converted.getNumSamples() != 0) {
        channel.conversion.convertFromKernel(channel.samples, verifier.converted, block.fill);
        samples = &verifier.converted;
    }
    const auto compare = [&](std::int64_t index, std::uint64_t digest) {
        if (verifier.differing < 0 && digest != m_digests->get(verifier.channel, index))
            verifier.differing = index;
    };
    verifier.current.add(*samples, block.fill, compare);
    if (block.end() == m_info->getNumPoints())
        verifier.current.finish(compare);
}

void WaveletDecoder::throwIfDiffering(const Block& block) const
{
    for (std::size_t i = 0; i < m_lanes.size(); ++i)
        if (block.differing[i] >= 0)
            QM_THROW(
                ErrorCode::DigestDiffers, "%s",
                m_digests->describe(m_channels[m_lanes[i].first].record->getPointName(), block.differing[i])
                    .c_str());
}

void WaveletDecoder::addLanes()
{
    for (std::size_t i = 0; i < m_channels.size(); i += m_lanes.back().count)
        m_lanes.push_back({i, m_channels[i].record->getPart() == ChannelPart::Whole ? std::size_t{1} : 3});
    for (Block& block : m_blocks)
        block.differing.assign(m_lanes.size(), -1);
    m_decoding.emplace(m_lanes.size(), m_blocks.size(),
                       [this](std::size_t slot, std::size_t lane) { decode(lane, m_blocks[slot]); });
}

void WaveletDecoder::decodeSubblocks(const Channel& channel)
{
    // Subblocks are listed from the coarsest band to the finest, so neighbours have similar sizes.
    const std::vector<CodedSubblock>& work = channel.work;
    const std::size_t step = channel.reader->prefersTwo() ? 2 : 1;
    nestedParallelLoop((work.size() + step - 1) / step, [&](std::size_t i) {
        const std::size_t end = work.size() - step * i;
        if (step == 2 && end >= 2)
            channel.reader->decodeTwo(work[end - 2], work[end - 1]);
        else
            channel.reader->decode(work[end - 1]);
    });
}

void WaveletDecoder::decodeChannel(Channel& channel, Block& block) const
{
    channel.work.clear();
    channel.root->prepare(block.fill, channel.work);
    decodeSubblocks(channel);
    channel.samples.reserve(channel.record->getKernelDataType(), block.fill);
    const std::size_t got = channel.root->get(channel.samples.getData(), block.fill);
    if (got != block.fill)
        QM_THROW(ErrorCode::SubbandRead, "bad read -- subblock data");
    channel.conversion.convertFromKernel(channel.samples, block.points, block.fill);
}

void WaveletDecoder::decode(std::size_t lane, Block& block)
{
    // Each task writes one channel of the block and has its own streams.
    const std::size_t firstChannel = m_lanes[lane].first;
    const std::size_t count = m_lanes[lane].count;
    Channel& first = m_channels[firstChannel];
    if (block.isSeparate) {
        for (std::size_t i = 0; i < count; ++i)
            m_channels[firstChannel + i].root->seek(block.begin);
        if (first.verifier)
            first.verifier->current.seek(block.begin);
    }
    nestedParallelLoop(count, [&](std::size_t i) { decodeChannel(m_channels[firstChannel + i], block); });
    if (count != 1)
        first.conversion.mergeFromKernel(first.samples, m_channels[firstChannel + 1].samples,
                                         m_channels[firstChannel + 2].samples, block.points, block.fill);
    if (first.verifier) {
        verifySamples(first, block);
        block.differing[lane] = first.verifier->differing;
    }
}

bool WaveletDecoder::startNext()
{
    if (m_range < m_ranges.size() && m_ranges[m_range].length == 0) {
        ++m_range;
        m_isNewRange = true;
    }
    if (m_range == m_ranges.size())
        return false;
    WaveletDecoderInfo::PointRange& range = m_ranges[m_range];
    Block& block = m_blocks[m_decoding->nextSlot()];
    block.fill = static_cast<std::size_t>(
        std::min<std::uint64_t>(static_cast<std::uint64_t>(range.length), block.points.getNumSamples()));
    block.begin = range.start;
    block.isSeparate = std::exchange(m_isNewRange, false);
    range.start += static_cast<std::int64_t>(block.fill);
    range.length -= static_cast<std::int64_t>(block.fill);
    m_numStarted += static_cast<std::int64_t>(block.fill);
    if (m_plan)
        m_plan->require(m_numStarted);
    m_decoding->start();
    return true;
}

void WaveletDecoder::finishNext()
{
    try {
        m_current = m_decoding->finish();
        throwIfDiffering(m_blocks[m_current]);
    } catch (const Error&) {
        // Whether the budget is exceeded does not depend on the threads, but which channel exceeds it does.
        if (m_budget.isExceeded())
            MemoryBudget::throwExceeded();
        throw;
    }
}

bool WaveletDecoder::refill()
{
    m_cursor = 0;
    m_blocks[m_current].fill = 0;
    if (!m_decoding)
        return false;
    try {
        if (m_decoding->numStarted() == 0 && !startNext())
            return false;
        if (getDelegate() && getDelegate()->getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        finishNext();
        // The caller takes one block.
        while (m_decoding->numStarted() + 1 < m_blocks.size() && startNext()) {
        }
    } catch (...) {
        m_decoding.reset(); // the chains are in an undefined state
        m_blocks[m_current].fill = 0;
        throw;
    }
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(m_blocks[m_current].fill), "reading VX7 file");
    return true;
}

std::size_t WaveletDecoder::getNextPoints(PointData& buffer)
{
    std::size_t filled = 0;
    while (filled < buffer.getNumSamples()) {
        if (m_cursor == m_blocks[m_current].fill && !refill())
            break;
        const Block& block = m_blocks[m_current];
        const PointData& points = block.points;
        filled = takeKept(points.getX(), points.getY(), points.getZ(), m_cursor, block.fill, filled,
                          buffer.getNumSamples(), [&](std::size_t to, std::size_t first, std::size_t count) {
                              PointData::copy(buffer, to, points, first, count);
                          });
    }
    return filled;
}

} // namespace Quillmoran
