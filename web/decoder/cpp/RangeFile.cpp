#include "RangeFile.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

std::span<std::uint8_t> RangeFile::add(std::int64_t offset, std::size_t length)
{
    if (offset < 0 || offset > m_size || static_cast<std::int64_t>(length) > m_size - offset)
        QM_THROW(ErrorCode::InvalidArgument, "bytes outside the file");
    Extent& extent = m_extents[offset];
    if (extent.bytes.size() < length)
        extent.bytes.resize(length);
    return std::span(extent.bytes).first(length);
}

void RangeFile::drop()
{
    m_sequenceEnd = 0;
    std::erase_if(m_extents, [](const auto& entry) { return !entry.second.isKept; });
}

void RangeFile::keep() noexcept
{
    for (auto& [offset, extent] : m_extents)
        extent.isKept = true;
}

std::size_t RangeFile::copy(std::int64_t offset, std::uint8_t* buffer, std::size_t count) const
{
    std::size_t copied = 0;
    // An extent that begins before the offset may end before it, and an earlier one may not: extents are ranges that
    // were missing, so this is rare, and those bytes are then asked for again.
    auto next = m_extents.upper_bound(offset);
    if (next != m_extents.begin())
        --next;
    for (; next != m_extents.end() && copied < count; ++next) {
        const std::int64_t at = offset + static_cast<std::int64_t>(copied);
        const auto& [begin, extent] = *next;
        const std::int64_t end = begin + static_cast<std::int64_t>(extent.bytes.size());
        if (begin > at)
            break;
        if (end <= at)
            continue;
        const auto inside = static_cast<std::size_t>(at - begin);
        const std::size_t taken = std::min(count - copied, extent.bytes.size() - inside);
        if (buffer)
            std::memcpy(buffer + copied, extent.bytes.data() + inside, taken);
        copied += taken;
    }
    return copied;
}

std::size_t RangeFile::pread(std::int64_t offset, void* buffer, std::size_t count) const
{
    if (offset < 0 || offset >= m_size)
        return 0;
    count =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, static_cast<std::uint64_t>(m_size - offset)));
    const std::size_t copied = copy(offset, static_cast<std::uint8_t*>(buffer), count);
    if (copied == 0 && count != 0)
        throwMissing(offset, static_cast<std::int64_t>(count));
    return copied;
}

void RangeFile::throwMissing(std::int64_t offset, std::int64_t count) const
{
    constexpr std::int64_t maxAhead = 8 << 20;
    m_ahead = offset == m_sequenceEnd ? std::min(2 * m_ahead, maxAhead) : firstAhead;
    const std::int64_t length = std::min(std::max(count, m_ahead), m_size - offset);
    m_sequenceEnd = offset + length;
    throw BytesMissing{{{offset, length}}};
}

void RangeFile::willRead(std::span<const Range> ranges) const
{
    BytesMissing missing;
    for (const Range& range : ranges) {
        const std::int64_t begin = std::clamp<std::int64_t>(range.offset, 0, m_size);
        const std::int64_t length = std::clamp<std::int64_t>(range.length, 0, m_size - begin);
        // What does not fit into memory cannot be added, either.
        const auto count = static_cast<std::size_t>(
            std::min<std::uint64_t>(static_cast<std::uint64_t>(length), PTRDIFF_MAX));
        const auto present = static_cast<std::int64_t>(copy(begin, nullptr, count));
        if (present < length)
            missing.ranges.push_back({begin + present, length - present});
    }
    if (!missing.ranges.empty())
        throw missing;
}

std::size_t RangeFile::pwrite(std::int64_t, const void*, std::size_t) const
{
    QM_THROW(ErrorCode::Write, "the file cannot be written");
}

void RangeFile::truncate(std::int64_t)
{
    QM_THROW(ErrorCode::Write, "the file cannot be written");
}

} // namespace Quillmoran
