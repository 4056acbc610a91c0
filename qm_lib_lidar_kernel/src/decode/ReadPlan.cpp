#include "decode/ReadPlan.h"

#include "common/coders/TransformUtils.h"
#include "decode/MemoryBudget.h"
#include "decode/coders/SubblockReader.h"
#include "platform/BoundedIO.h"
#include "platform/ParallelLoop.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace Quillmoran {

namespace {

// A step takes long compared with the answer of a server, and two fit into the memory of a remote file.
constexpr std::int64_t stepBytes = 8 << 20;
constexpr std::int64_t firstStepBytes = 4 << 20;
constexpr std::int64_t maxHeaderBytes = 8 << 20; // announced at a time
constexpr std::size_t streamBytes = 4096;
constexpr std::uint64_t bandBytes = sizeof(PlannedPositions) + streamBytes + 1024; // memory of a band
// Headers of a band are announced as a share of the rest of them, with a margin.
constexpr double headerMargin = 1.1;
constexpr std::int64_t minHeaders = 1024; // bytes

std::int64_t sizeOf(const BandRanges& ranges)
{
    return ranges.headers.length() + (ranges.interleaved ? 0 : ranges.data.length());
}

IO::Range toRange(const IO::Location& location)
{
    return {location.offset(), location.length()};
}

} // namespace

ReadPlan::~ReadPlan()
{
    // Without threads, a step that nobody has waited for has not begun.
    if (m_receiving.valid() && hasThreads())
        m_receiving.wait();
}

void ReadPlan::announceDescription(const WaveletDecoderInfo& info, const Bounds& bounds, bool verifies)
{
    constexpr std::int64_t maxIndex = 16 << 20;
    std::vector<IO::Range> ranges;
    if (info.needsIndex(bounds) && info.getChunks().index.length() <= maxIndex)
        ranges.push_back(toRange(info.getChunks().index));
    if (verifies && info.getDigests().exist())
        ranges.push_back(toRange(info.getDigests().getPayload()));
    info.getFile()->willRead(ranges);
}

void ReadPlan::addBand(const SubblockReader& reader, std::size_t band, std::int64_t numSamples,
                       BandRanges& ranges, MemoryBudget& budget)
{
    budget.take(bandBytes);
    Band& added = m_bands.emplace_back();
    added.reader = &reader;
    const auto coarsest = static_cast<std::size_t>(m_info.getNumLevels() - 1);
    added.numStages = static_cast<std::uint32_t>(coarsest - m_level - (band == 0 ? 0 : band - 1));
    added.padding = TransformUtils::getPadding(reader.getFormat().transform);
    const std::uint64_t size = reader.getFormat().subblockSize;
    added.numSubblocks = (static_cast<std::uint64_t>(numSamples) + size - 1) / size;
    added.ranges = ranges;
    ranges.planned = &added.positions;
}

void ReadPlan::start(PointRanges ranges, std::int64_t samplePoints)
{
    m_ranges = std::move(ranges);
    std::int64_t bytes = 0;
    for (const Band& band : m_bands)
        bytes += std::min(sizeOf(band.ranges), m_info.getFile()->size());
    const std::int64_t numSamples = m_info.getNumSamples(m_level);
    const double bytesPerPoint = std::max(static_cast<double>(bytes) / static_cast<double>(numSamples), 1e-3);
    const auto pointsOf = [bytesPerPoint](std::int64_t size) {
        return static_cast<std::int64_t>(static_cast<double>(size) / bytesPerPoint) + 1;
    };
    m_maxStepPoints = pointsOf(stepBytes);
    m_readsAhead = samplePoints == 0;
    m_stepPoints = m_readsAhead ? pointsOf(firstStepBytes) : samplePoints;
    const bool isWhole = m_ranges.size() == 1 && m_ranges[0].start == 0 && m_ranges[0].length == numSamples;
    m_isComplete = m_ranges.empty();
    if (isWhole && m_readsAhead && bytes <= stepBytes) {
        announceWhole();
        m_isComplete = true;
    }
}

void ReadPlan::announceWhole()
{
    std::vector<IO::Range> ranges;
    for (const Band& band : m_bands) {
        ranges.push_back(toRange(band.ranges.headers));
        if (!band.ranges.interleaved)
            ranges.push_back(toRange(band.ranges.data));
    }
    m_info.getFile()->willRead(ranges);
}

ReadPlan::PointRanges ReadPlan::takePoints(std::int64_t count)
{
    PointRanges points;
    while (count > 0 && m_range < m_ranges.size()) {
        WaveletDecoderInfo::PointRange& range = m_ranges[m_range];
        const std::int64_t taken = std::min(count, range.length);
        points.push_back({range.start, taken});
        range.start += taken;
        range.length -= taken;
        count -= taken;
        m_planned += taken;
        if (range.length == 0)
            ++m_range;
    }
    return points;
}

// A stage reads, around the pairs that it delivers, twice its padding on both sides.
void ReadPlan::findWanted(Band& band, const PointRanges& points)
{
    const std::uint64_t size = band.reader->getFormat().subblockSize;
    const auto margin = static_cast<std::int64_t>(2 * band.padding);
    band.wanted.clear();
    for (const WaveletDecoderInfo::PointRange& range : points) {
        std::int64_t begin = range.start;
        std::int64_t end = range.start + range.length; // of samples
        for (std::uint32_t i = 0; i < band.numStages; ++i) {
            begin = std::max<std::int64_t>(begin / 2 - margin, 0);
            end = end / 2 + 1 + margin;
        }
        Interval interval{static_cast<std::uint64_t>(begin) / size,
                          std::min((static_cast<std::uint64_t>(end) + size - 1) / size, band.numSubblocks)};
        // Those before have been announced.
        interval.begin = std::max(interval.begin, band.wanted.empty() ? band.next : band.wanted.back().end);
        if (interval.begin >= interval.end)
            continue;
        if (!band.wanted.empty() && band.wanted.back().end == interval.begin)
            band.wanted.back().end = interval.end;
        else
            band.wanted.push_back(interval);
    }
}

// From the position of the walk to the last header that it will read.
IO::Range ReadPlan::estimateHeaders(const Band& band)
{
    const IO::Location& all = band.ranges.headers;
    const std::int64_t at = band.headerRange ? band.headers.tell() : all.offset();
    const std::int64_t left = all.offset() + all.length() - at;
    const auto wanted = static_cast<double>(band.wanted.back().end - band.next);
    const auto share = wanted / static_cast<double>(band.numSubblocks - band.next) * headerMargin;
    const std::int64_t estimate = minHeaders + static_cast<std::int64_t>(static_cast<double>(left) * share);
    return {at, std::min(left, estimate)};
}

void ReadPlan::walkTo(Band& band, std::uint64_t subblock)
{
    const std::int64_t dataEnd = band.ranges.data.offset() + band.ranges.data.length();
    while (band.next < subblock) {
        if (band.pendingZeros == 0) {
            SubblockHeader header;
            band.pendingZeros = band.reader->readHeader(band.headers, header);
            if (band.pendingZeros == 0) {
                if (header.payloadLength > static_cast<std::uint64_t>(dataEnd - band.data))
                    throw Error(__FILE__, __func__, __LINE__, ErrorCode::SubbandRead);
                band.data += static_cast<std::int64_t>(header.payloadLength);
                ++band.next;
            }
        } else {
            const std::uint64_t skipped = std::min<std::uint64_t>(band.pendingZeros, subblock - band.next);
            band.pendingZeros -= static_cast<std::size_t>(skipped);
            band.next += skipped;
        }
    }
}

void ReadPlan::walk(Band& band, std::vector<IO::Range>& reads)
{
    if (!band.headerRange) {
        band.headerRange.reset(BoundedIO::create(band.ranges.headers));
        band.headers.init(band.headerRange.get(), true, streamBytes);
        band.headers.seek(band.ranges.headers.offset(), Stream::SEEK_FROM_START);
        band.data = band.ranges.data.offset();
    }
    for (const Interval& interval : band.wanted) {
        walkTo(band, interval.begin);
        const std::int64_t headers = band.headers.tell();
        const std::int64_t data = band.data;
        band.positions.add({band.next, headers, data, band.pendingZeros});
        walkTo(band, interval.end);
        reads.push_back({headers, band.headers.tell() - headers});
        reads.push_back({data, band.data - data});
    }
}

void ReadPlan::receiveStep()
{
    const PointRanges points = takePoints(m_stepPoints);
    m_stepPoints = m_maxStepPoints;
    IO& file = *m_info.getFile();
    std::vector<Band*> active;
    for (Band& band : m_bands) {
        if (band.isDamaged || band.ranges.interleaved)
            continue;
        findWanted(band, points);
        if (!band.wanted.empty())
            active.push_back(&band);
    }
    std::vector<IO::Range> reads;
    for (auto first = active.begin(); first != active.end();) {
        std::vector<IO::Range> headers;
        std::int64_t bytes = 0;
        auto last = first;
        for (; last != active.end() && (last == first || bytes < maxHeaderBytes); ++last) {
            headers.push_back(estimateHeaders(**last));
            bytes += headers.back().length;
        }
        file.willRead(headers);
        for (; first != last; ++first) {
            try {
                walk(**first, reads);
            } catch (const Error& error) {
                if (error.code() != ErrorCode::SubbandRead)
                    throw;
                (*first)->isDamaged = true;
            }
        }
    }
    file.willRead(reads);
}

void ReadPlan::startNext()
{
    m_isComplete = m_range == m_ranges.size();
    if (m_isComplete)
        return;
    try {
        const std::launch policy = hasThreads() ? std::launch::async : std::launch::deferred;
        m_receiving = std::async(policy, [this] { receiveStep(); });
    } catch (const std::system_error&) {
        m_isComplete = true; // the system has no thread left, and the decoder does without the plan
    }
}

void ReadPlan::require(std::int64_t numPoints)
{
    while (!m_isComplete && m_received < numPoints) {
        if (!m_receiving.valid())
            startNext();
        if (m_isComplete)
            return;
        m_receiving.get();
        m_received = m_planned;
        if (m_readsAhead)
            startNext();
        m_readsAhead = true;
    }
}

} // namespace Quillmoran
