#include "platform/Stream.h"

#include "platform/CheckedMath.h"
#include "platform/OpenIO.h"
#include "platform/ParallelLoop.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace Quillmoran {

Stream::~Stream()
{
    if (!m_buffer)
        return;
    try {
        m_io->close();
    } catch (...) {
        // An owner that needs the result calls close().
    }
}

void Stream::openBuffer(std::size_t bufferSize)
{
    m_buffer = makeBuffer<unsigned char>(bufferSize);
    m_bufferSize = bufferSize;
    try {
        m_io->open();
    } catch (...) {
        m_buffer.reset();
        throw;
    }
}

void Stream::closeBuffer()
{
    m_buffer.reset();
    m_current = m_limit = nullptr;
    m_io->close();
}

void StreamReader::init(IO* io, bool open, std::size_t bufferSize)
{
    setIO(io);
    if (open)
        this->open(bufferSize);
}

void StreamReader::init(const IO::Location& location, std::size_t bufferSize)
{
    const std::int64_t length = location.length();
    if (length >= 1 && static_cast<std::uint64_t>(length) < bufferSize)
        bufferSize = static_cast<std::size_t>(length);
    init(location.io(), true, bufferSize);
    seek(location.offset(), SEEK_FROM_START);
}

void StreamReader::open(std::size_t bufferSize)
{
    if (isOpen())
        return;
    openBuffer(bufferSize);
    m_current = m_limit = m_buffer.get();
}

void StreamReader::close()
{
    if (isOpen()) {
        m_position = tell();
        closeBuffer();
    }
}

void StreamReader::seek(std::int64_t offset, Mode mode)
{
    if (mode == SEEK_FROM_CURRENT)
        offset = saturatingAdd(offset, tell());
    else if (mode == SEEK_FROM_END)
        offset = saturatingAdd(offset, m_io->size());
    const std::int64_t first = m_position - (m_limit - m_buffer.get()); // of the buffered bytes
    if (offset >= first && offset <= m_position) {
        m_current = m_limit - (m_position - offset);
        return;
    }
    m_current = m_limit = m_buffer.get();
    m_position = offset;
}

void StreamReader::flush()
{
    m_position = tell();
    m_current = m_limit = m_buffer.get();
}

std::uint64_t StreamReader::remaining() const
{
    const std::int64_t end = m_io->size();
    const std::int64_t position = tell();
    // The position may be negative, since seek() accepts any.
    return end > position ? static_cast<std::uint64_t>(end) - static_cast<std::uint64_t>(position) : 0;
}

std::size_t StreamReader::fill()
{
    m_current = m_limit = m_buffer.get();
    const std::size_t got = m_io->pread(m_position, m_buffer.get(), m_bufferSize);
    m_position += static_cast<std::int64_t>(got);
    m_limit = m_buffer.get() + got;
    return got;
}

std::size_t StreamReader::read(void* buffer, std::size_t count)
{
    if (count == 0)
        return 0; // also for a null buffer
    auto* out = static_cast<unsigned char*>(buffer);
    const auto buffered = static_cast<std::size_t>(m_limit - m_current);
    // A remote file is not asked for bytes that may not be needed.
    if (buffered > count || (buffered == count && m_io->isRemote())) {
        std::memcpy(out, m_current, count);
        m_current += count;
        return count;
    }
    if (buffered != 0)
        std::memcpy(out, m_current, buffered);
    m_current = m_limit;
    const std::size_t rest = count - buffered;
    if (rest < m_bufferSize) {
        // A read may be short; only an empty read is the end.
        std::size_t taken = 0, got = 0;
        do {
            got = fill();
            const std::size_t next = std::min(rest - taken, got);
            std::memcpy(out + buffered + taken, m_current, next);
            m_current += next;
            taken += next;
        } while (taken < rest && got != 0);
        return buffered + taken;
    }
    // Read to the caller's buffer, so that the stream's buffer is no longer valid.
    m_current = m_limit = m_buffer.get();
    const std::size_t got = readFully(*m_io, m_position, out + buffered, rest);
    m_position += static_cast<std::int64_t>(got);
    return buffered + got;
}

bool StreamReader::get_str(char*& line, std::size_t& capacity)
{
    constexpr std::size_t growth = 1024;
    std::size_t length = 0;
    for (char next = '\0'; next != '\n' && read(&next, 1) == 1; ++length) {
        const std::size_t needed = length + 2; // with the NUL
        if (needed > capacity) {
            const std::size_t grown = (needed / growth + 1) * growth;
            line = static_cast<char*>(XREALLOC(line, grown));
            capacity = grown;
        }
        line[length] = next;
    }
    if (length != 0)
        line[length] = '\0';
    return length != 0;
}

void StreamWriter::init(IO* io, bool open, std::size_t bufferSize)
{
    setIO(io);
    if (open)
        this->open(bufferSize);
}

void StreamWriter::open(std::size_t bufferSize)
{
    if (isOpen())
        return;
    openBuffer(bufferSize);
    m_current = m_buffer.get();
    m_limit = m_current + bufferSize;
}

void StreamWriter::close(bool flush)
{
    if (!isOpen())
        return;
    if (flush)
        this->flush();
    closeBuffer();
}

void StreamWriter::writeAll(const unsigned char* bytes, std::size_t count)
{
    writeFully(*m_io, m_position, bytes, count);
    m_position += static_cast<std::int64_t>(count);
}

void StreamWriter::flush()
{
    const auto buffered = static_cast<std::size_t>(m_current - m_buffer.get());
    m_current = m_buffer.get();
    if (buffered != 0)
        writeAll(m_buffer.get(), buffered);
}

void StreamWriter::seek(std::int64_t offset, Mode mode)
{
    flush();
    if (mode == SEEK_FROM_CURRENT)
        offset += m_position;
    else if (mode == SEEK_FROM_END)
        offset += m_io->size();
    m_position = offset;
}

std::size_t StreamWriter::write(const void* buffer, std::size_t count)
{
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    const auto space = static_cast<std::size_t>(m_limit - m_current);
    if (space > count) {
        if (count != 0)
            std::memcpy(m_current, bytes, count);
        m_current += count;
        return count;
    }
    std::memcpy(m_current, bytes, space);
    m_current += space;
    flush();
    const std::size_t rest = count - space;
    if (rest < m_bufferSize) {
        std::memcpy(m_current, bytes + space, rest);
        m_current += rest;
        return count;
    }
    std::size_t done = space;
    while (done < count) {
        const std::size_t moved = m_io->pwrite(m_position, bytes + done, count - done);
        if (moved == 0)
            break;
        m_position += static_cast<std::int64_t>(moved);
        done += moved;
    }
    return done;
}

bool StreamWriter::put_str(const char* text, std::size_t length)
{
    if (length == static_cast<std::size_t>(-1))
        length = std::strlen(text);
    return write(text, length) == length;
}

template <class Read>
bool StreamWriter::copyBlocks(std::int64_t length, Read read)
{
    flush();
    while (static_cast<std::uint64_t>(length) >= m_bufferSize) {
        const std::size_t got = read(m_buffer.get(), m_bufferSize);
        if (got == 0)
            return false;
        writeAll(m_buffer.get(), got);
        length -= static_cast<std::int64_t>(got);
    }
    // The last part stays in the buffer.
    while (length > 0) {
        const std::size_t got = read(m_current, static_cast<std::size_t>(length));
        if (got == 0)
            return false;
        m_current += got;
        length -= static_cast<std::int64_t>(got);
    }
    return true;
}

bool StreamWriter::copy(IO* io, std::int64_t offset, std::int64_t length)
{
    if (length < 0)
        return false;
    const OpenIO opened(io);
    return copyBlocks(length, [&](unsigned char* to, std::size_t count) {
        const std::size_t got = io->pread(offset, to, count);
        offset += static_cast<std::int64_t>(got);
        return got;
    });
}

bool StreamWriter::copyInParallel(IO* io, const std::vector<Range>& ranges)
{
    constexpr std::int64_t pieceLength = 256 * 1024;
    flush();
    const OpenIO opened(io);
    std::int64_t length = 0;
    for (const Range& range : ranges)
        length += range.length;
    std::atomic<bool> isComplete = true;
    parallelLoop(static_cast<std::size_t>((length + pieceLength - 1) / pieceLength), [&](std::size_t i) {
        const std::int64_t begin = static_cast<std::int64_t>(i) * pieceLength;
        const std::int64_t end = std::min(begin + pieceLength, length);
        const auto piece = makeBuffer<unsigned char>(static_cast<std::size_t>(end - begin));
        std::int64_t first = 0; // of the range, in the copy
        for (const Range& range : ranges) {
            const std::int64_t from = std::max(begin, first), to = std::min(end, first + range.length);
            const auto count = static_cast<std::size_t>(std::max<std::int64_t>(to - from, 0));
            if (count != 0 &&
                readFully(*io, range.offset + from - first, piece.get() + (from - begin), count) != count)
                isComplete = false;
            first += range.length;
        }
        if (isComplete)
            writeFully(*m_io, m_position + begin, piece.get(), static_cast<std::size_t>(end - begin));
    });
    m_position += length;
    return isComplete;
}

bool StreamWriter::copy(StreamReader& reader, std::int64_t length)
{
    if (length < 0)
        return false;
    return copyBlocks(length, [&](unsigned char* to, std::size_t count) { return reader.read(to, count); });
}

} // namespace Quillmoran
