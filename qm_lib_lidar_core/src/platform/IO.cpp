#include <vxunpack/IO.h>

#include <vxunpack/Base.h>

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

} // namespace Quillmoran
