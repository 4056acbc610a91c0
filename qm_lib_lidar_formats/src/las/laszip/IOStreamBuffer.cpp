#include "las/laszip/IOStreamBuffer.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

IOStreamBuffer::IOStreamBuffer(IO& io, const LASzipChunks& chunks)
    : m_io(io), m_walk(io, chunks), m_buffer(makeBuffer<char>(bufferSize)), m_writing(false)
{
    setg(m_buffer.get(), m_buffer.get(), m_buffer.get());
}

// LASzip asks for the position of the first byte, where it will later write the position of the table, and takes
// -1 for a stream that cannot seek. It needs all later positions for the sizes of the chunks.
IOStreamBuffer::IOStreamBuffer(IO& io, std::int64_t position, Access access)
    : m_io(io),
      m_walk(io, {}),
      m_buffer(makeBuffer<char>(bufferSize)),
      m_position(position),
      m_writing(true),
      m_concealed(access == SEQUENTIAL ? position : -1)
{
    setp(m_buffer.get(), m_buffer.get() + bufferSize);
}

std::int64_t IOStreamBuffer::tell() const noexcept
{
    return m_writing ? m_position + (pptr() - pbase()) : m_position - (egptr() - gptr());
}

std::size_t IOStreamBuffer::fill()
{
    const std::vector<unsigned char>& head = m_walk.getHead();
    const auto headSize = static_cast<std::int64_t>(head.size());
    if (m_position < headSize) {
        const std::size_t got = std::min(bufferSize, static_cast<std::size_t>(headSize - m_position));
        std::memcpy(m_buffer.get(), head.data() + m_position, got);
        return got;
    }
    const std::size_t got = m_io.pread(m_position, m_buffer.get(), m_walk.allow(m_position, bufferSize));
    if (got == 0)
        QM_THROW(ErrorCode::LASRead, "the file ends within its points");
    return got;
}

IOStreamBuffer::int_type IOStreamBuffer::underflow()
{
    std::size_t got = bufferSize; // of zeros, once a read has failed
    try {
        if (!m_failure)
            got = fill();
    } catch (...) {
        failWithZeros();
    }
    if (!m_failure)
        m_position += static_cast<std::int64_t>(got);
    setg(m_buffer.get(), m_buffer.get(), m_buffer.get() + got);
    return traits_type::to_int_type(*gptr());
}

void IOStreamBuffer::failWithZeros()
{
    m_failure = std::current_exception();
    std::fill_n(m_buffer.get(), bufferSize, '\0');
}

std::streamsize IOStreamBuffer::xsgetn(char* bytes, std::streamsize count)
{
    const std::int64_t position = tell();
    const std::streamsize got = std::streambuf::xsgetn(bytes, count);
    try {
        if (!m_failure)
            m_walk.noteRead(position, static_cast<std::size_t>(got));
    } catch (...) {
        failWithZeros();
    }
    return got;
}

void IOStreamBuffer::flush()
{
    const auto size = static_cast<std::size_t>(pptr() - pbase());
    try {
        if (!m_failure)
            writeFully(m_io, m_position, pbase(), size);
    } catch (...) {
        m_failure = std::current_exception();
    }
    m_position += static_cast<std::int64_t>(size);
    setp(m_buffer.get(), m_buffer.get() + bufferSize);
}

void IOStreamBuffer::throwFailure() const
{
    if (m_failure)
        std::rethrow_exception(m_failure);
}

IOStreamBuffer::int_type IOStreamBuffer::overflow(int_type byte)
{
    flush();
    if (traits_type::eq_int_type(byte, traits_type::eof()))
        return traits_type::not_eof(byte);
    return sputc(traits_type::to_char_type(byte));
}

int IOStreamBuffer::sync()
{
    if (m_writing)
        flush();
    return 0;
}

IOStreamBuffer::pos_type IOStreamBuffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                                 std::ios_base::openmode)
{
    if (from == std::ios_base::beg)
        return seekpos(offset, {});
    if (from == std::ios_base::cur && offset == 0)
        return m_writing && tell() == m_concealed ? pos_type(off_type(-1)) : pos_type(tell());
    if (m_writing)
        flush();
    const std::int64_t base = from == std::ios_base::cur ? tell() : m_io.size();
    std::int64_t target = 0;
    if (__builtin_add_overflow(base, static_cast<std::int64_t>(offset), &target))
        return pos_type(off_type(-1));
    return seekpos(target, {});
}

IOStreamBuffer::pos_type IOStreamBuffer::seekpos(pos_type position, std::ios_base::openmode)
{
    const auto target = static_cast<std::int64_t>(off_type(position));
    if (target < 0)
        return pos_type(off_type(-1));
    if (m_writing) {
        flush();
        m_position = target;
        return position;
    }
    const std::int64_t buffered = m_position - (egptr() - eback());
    if (target >= buffered && target <= m_position) {
        setg(eback(), eback() + (target - buffered), egptr());
    } else {
        m_position = target;
        setg(m_buffer.get(), m_buffer.get(), m_buffer.get());
    }
    return position;
}

} // namespace Quillmoran
