#include <vxunpack/IO.h>

#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>

namespace Quillmoran {

std::size_t readFully(const IO& io, std::int64_t offset, void* buffer, std::size_t count)
{
    auto* const bytes = static_cast<unsigned char*>(buffer);
    std::size_t got = 0;
    while (got < count) {
        const std::size_t moved = io.pread(offset + static_cast<std::int64_t>(got), bytes + got, count - got);
        if (moved == 0)
            break;
        got += moved;
    }
    return got;
}

void writeFully(const IO& io, std::int64_t offset, const void* buffer, std::size_t count)
{
    const auto* const bytes = static_cast<const unsigned char*>(buffer);
    for (std::size_t done = 0; done < count;) {
        const std::size_t moved =
            io.pwrite(offset + static_cast<std::int64_t>(done), bytes + done, count - done);
        if (moved == 0)
            QM_THROW(ErrorCode::Write, "write error");
        done += moved;
    }
}

IO::Location::Location(IO* io, std::int64_t offset, std::int64_t length)
{
    set(io, offset, length);
}

void IO::Location::set(IO* io, std::int64_t offset, std::int64_t length)
{
    if (io != m_io.get())
        m_io = Scoped<IO>::retained(io);
    m_offset = offset;
    m_length = length;
}

BoundedIO::BoundedIO(const Location& stretch, std::int64_t end) : m_stretch(stretch), m_end(end)
{}

BoundedIO* BoundedIO::create(const Location& stretch)
{
    const std::int64_t available = stretch.io()->size();
    const std::int64_t offset = std::clamp<std::int64_t>(stretch.offset(), 0, available);
    const std::int64_t length = std::clamp<std::int64_t>(stretch.length(), 0, available - offset);
    return new BoundedIO(stretch, offset + length);
}

void BoundedIO::open()
{
    m_stretch.io()->open();
}

void BoundedIO::close()
{
    m_stretch.io()->close();
}

std::size_t BoundedIO::pread(std::int64_t offset, void* buffer, std::size_t count) const
{
    if (offset >= m_end)
        return 0;
    // In unsigned arithmetic, since the offset may be as negative as it likes.
    const std::uint64_t left = static_cast<std::uint64_t>(m_end) - static_cast<std::uint64_t>(offset);
    return m_stretch.io()->pread(offset, buffer,
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
