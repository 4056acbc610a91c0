#include "remote/RangeIO.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

namespace Quillmoran {

namespace {

// The first request. Files of up to this size are complete then.
constexpr std::size_t headBytes = 64 << 10;
// A read that was not announced receives this much, and up to the maximum if it continues an extent.
constexpr std::int64_t minExtent = 64 << 10;
constexpr std::int64_t maxExtent = 4 << 20;
constexpr std::int64_t maxBytes = 64 << 20; // of all extents
constexpr std::int64_t maxKept = 256 << 10; // of a closed file
// An answer describes each of its ranges in about a hundred bytes. A request of its own costs far more.
constexpr std::int64_t smallGap = 256;
constexpr std::int64_t largeGap = 64 << 10;
// With more ranges than fit into two requests, larger gaps are read as long as they are few bytes of all.
constexpr std::size_t manyRanges = 500;
constexpr std::int64_t wastedShare = 12;

} // namespace

RangeIO* RangeIO::create(std::unique_ptr<RangeSource> source, std::string name)
{
    return new RangeIO(std::move(source), std::move(name));
}

RangeIO::RangeIO(std::unique_ptr<RangeSource> source, std::string name)
    : m_source(std::move(source)), m_name(std::move(name))
{}

void RangeIO::throwFailure(const RangeSource::Result& result) const
{
    switch (result.status) {
    case RangeSource::Result::Good:
        return;
    case RangeSource::Result::Cancelled:
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    case RangeSource::Result::Changed:
        QM_THROW(ErrorCode::RemoteChanged, "'%s' has changed while it was read", m_name.c_str());
    case RangeSource::Result::Failed:
        break;
    }
    QM_THROW(ErrorCode::RemoteRead, "cannot read '%s': %s", m_name.c_str(), result.message.c_str());
}

void RangeIO::open()
{
    const Lock lock(m_mutex);
    if (!m_isKnown) {
        std::vector<unsigned char> head(headBytes);
        throwFailure(m_source->open(m_size, head));
        m_bytes = m_keptBytes = static_cast<std::int64_t>(head.size());
        if (!head.empty())
            m_extents[0] = {std::move(head), true, true, 0};
        m_isKnown = true;
    }
    ++m_openCount;
}

void RangeIO::close()
{
    const Lock lock(m_mutex);
    if (--m_openCount != 0)
        return;
    for (auto extent = m_extents.begin(); extent != m_extents.end();) {
        if (extent->second.isKept || !extent->second.isReady) {
            ++extent;
            continue;
        }
        m_bytes -= extent->second.length();
        extent = m_extents.erase(extent);
    }
}

RangeIO::Extents::iterator RangeIO::findExtent(std::int64_t offset) const
{
    auto after = m_extents.upper_bound(offset);
    if (after == m_extents.begin())
        return m_extents.end();
    const auto extent = std::prev(after);
    return offset - extent->first < extent->second.length() ? extent : m_extents.end();
}

// At least one byte, and not beyond the next extent or the end of the file.
std::int64_t RangeIO::chooseLength(std::int64_t offset, std::size_t count) const
{
    std::int64_t wanted =
        std::max(minExtent, static_cast<std::int64_t>(std::min<std::uint64_t>(count, maxExtent)));
    const auto after = m_extents.upper_bound(offset);
    if (after != m_extents.begin()) {
        const auto before = std::prev(after);
        if (before->first + before->second.length() == offset)
            wanted = std::max(wanted, std::min(maxExtent, 2 * before->second.length()));
    }
    const std::int64_t end = after == m_extents.end() ? m_size : std::min(m_size, after->first);
    return std::min(wanted, end - offset);
}

std::size_t RangeIO::pread(std::int64_t offset, void* buffer, std::size_t count) const
{
    if (offset < 0 || offset >= m_size || count == 0)
        return 0;
    Lock lock(m_mutex);
    for (;;) {
        const auto found = findExtent(offset);
        if (found == m_extents.end()) {
            const Range range{offset, chooseLength(offset, count)};
            fetch(lock, {&range, 1});
        } else if (!found->second.isReady) {
            m_received.wait(lock);
        } else {
            Extent& extent = found->second;
            extent.lastUse = ++m_clock;
            const auto inside = static_cast<std::size_t>(offset - found->first);
            const std::size_t moved = std::min(count, extent.bytes.size() - inside);
            std::memcpy(buffer, extent.bytes.data() + inside, moved);
            return moved;
        }
    }
}

bool RangeIO::isUncovered(std::int64_t offset, std::int64_t end) const
{
    const auto next = m_extents.lower_bound(offset);
    return findExtent(offset) == m_extents.end() && (next == m_extents.end() || next->first >= end);
}

void RangeIO::findMissing(Range range, std::vector<Range>& missing) const
{
    std::int64_t at = std::clamp<std::int64_t>(range.offset, 0, m_size);
    const std::int64_t end = at + std::clamp<std::int64_t>(range.length, 0, m_size - at);
    while (at < end) {
        const auto extent = findExtent(at);
        if (extent != m_extents.end()) {
            extent->second.lastUse = ++m_clock;
            at = extent->first + extent->second.length();
            continue;
        }
        const auto next = m_extents.lower_bound(at);
        const std::int64_t stop = next == m_extents.end() ? end : std::min(end, next->first);
        missing.push_back({at, stop - at});
        at = stop;
    }
}

void RangeIO::join(std::vector<Range>& missing) const
{
    const auto joinAt = [&](std::int64_t maxGap) {
        std::vector<Range> joined;
        for (const Range& range : missing) {
            if (!joined.empty()) {
                Range& last = joined.back();
                const std::int64_t end = last.offset + last.length;
                if (range.offset <= end || (range.offset - end <= maxGap && last.length < maxExtent &&
                                            isUncovered(end, range.offset))) {
                    last.length = std::max(end, range.offset + range.length) - last.offset;
                    continue;
                }
            }
            joined.push_back(range);
        }
        return joined;
    };
    const auto bytesOf = [](const std::vector<Range>& ranges) {
        std::int64_t bytes = 0;
        for (const Range& range : ranges)
            bytes += range.length;
        return bytes;
    };
    const bool takesMany = m_source->takesManyRanges();
    missing = joinAt(0); // ranges can overlap
    const std::int64_t useful = bytesOf(missing);
    std::vector<Range> joined = joinAt(takesMany ? smallGap : largeGap);
    for (std::int64_t gap = 2 * smallGap; takesMany && joined.size() > manyRanges; gap *= 2) {
        std::vector<Range> fewer = joinAt(gap);
        if (bytesOf(fewer) - useful > useful / wastedShare)
            break;
        joined = std::move(fewer);
    }
    missing = std::move(joined);
}

void RangeIO::willRead(std::span<const Range> ranges) const
{
    Lock lock(m_mutex);
    std::vector<Range> missing;
    for (const Range& range : ranges)
        findMissing(range, missing);
    if (missing.empty())
        return;
    std::sort(missing.begin(), missing.end(),
              [](const Range& a, const Range& b) { return a.offset < b.offset; });
    join(missing);
    std::int64_t bytes = 0;
    const auto tooMuch = std::find_if(missing.begin(), missing.end(), [&](const Range& range) {
        return (bytes += range.length) > maxBytes / 2;
    });
    missing.erase(tooMuch, missing.end());
    if (!missing.empty())
        fetch(lock, missing);
}

void RangeIO::fetch(Lock& lock, std::span<const Range> ranges) const
{
    // Memory can be short before the first extent exists, and not after that.
    Extents added;
    for (const Range& range : ranges)
        added[range.offset].bytes.resize(static_cast<std::size_t>(range.length));
    std::vector<RangeSource::Read> reads;
    reads.reserve(ranges.size());
    for (auto& [offset, extent] : added) {
        extent.isKept = m_keptBytes + extent.length() <= maxKept;
        extent.lastUse = ++m_clock;
        m_bytes += extent.length();
        m_keptBytes += extent.isKept ? extent.length() : 0;
        reads.push_back({offset, extent.bytes}); // other extents come and go, these stay where they are
    }
    m_extents.merge(added);
    lock.unlock();
    RangeSource::Result result{RangeSource::Result::Failed, {}};
    std::exception_ptr exception;
    try {
        result = m_source->read(reads);
    } catch (...) { // other threads must not wait for these extents for ever
        exception = std::current_exception();
    }
    lock.lock();
    for (const Range& range : ranges) {
        const auto extent = m_extents.find(range.offset);
        extent->second.isReady = true;
        if (result.status != RangeSource::Result::Good) {
            m_bytes -= range.length;
            m_keptBytes -= extent->second.isKept ? range.length : 0;
            m_extents.erase(extent);
        }
    }
    m_received.notify_all();
    if (exception)
        std::rethrow_exception(exception);
    throwFailure(result);
    if (m_bytes > maxBytes)
        dropOld();
}

void RangeIO::dropOld() const
{
    std::vector<Extents::iterator> old;
    for (auto extent = m_extents.begin(); extent != m_extents.end(); ++extent)
        if (extent->second.isReady && !extent->second.isKept)
            old.push_back(extent);
    std::sort(old.begin(), old.end(),
              [](Extents::iterator a, Extents::iterator b) { return a->second.lastUse < b->second.lastUse; });
    for (const Extents::iterator extent : old) {
        if (m_bytes <= maxBytes * 3 / 4)
            return;
        m_bytes -= extent->second.length();
        m_extents.erase(extent);
    }
}

std::size_t RangeIO::pwrite(std::int64_t, const void*, std::size_t) const
{
    errno = EROFS;
    QM_THROW_OS(m_name.c_str());
}

void RangeIO::truncate(std::int64_t)
{
    errno = EROFS;
    QM_THROW_OS(m_name.c_str());
}

} // namespace Quillmoran
