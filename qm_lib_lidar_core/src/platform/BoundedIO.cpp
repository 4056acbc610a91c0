#include "platform/BoundedIO.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>

namespace Quillmoran {

BoundedIO* BoundedIO::create(const Location& range)
{
    const std::int64_t available = range.io()->size();
    const std::int64_t offset = std::clamp<std::int64_t>(range.offset(), 0, available);
    const std::int64_t length = std::clamp<std::int64_t>(range.length(), 0, available - offset);
    return new BoundedIO(range, offset + length);
}

std::size_t BoundedIO::pread(std::int64_t offset, void* buffer, std::size_t count) const
{
    if (offset >= m_end)
        return 0;
    // In unsigned arithmetic, which cannot overflow for a negative offset.
    const std::uint64_t left = static_cast<std::uint64_t>(m_end) - static_cast<std::uint64_t>(offset);
    return m_range.io()->pread(offset, buffer,
                               static_cast<std::size_t>(std::min<std::uint64_t>(count, left)));
}

std::size_t BoundedIO::pwrite(std::int64_t, const void*, std::size_t) const
{
    errno = EROFS;
    throw OSError(__FILE__, "pwrite", __LINE__);
}

void BoundedIO::truncate(std::int64_t)
{
    errno = EROFS;
    throw OSError(__FILE__, "truncate", __LINE__);
}

} // namespace Quillmoran
