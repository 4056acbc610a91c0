// Buffered readers and writers of an IO, each with its own position. Used by one thread at a time; several
// streams may use the same IO.
//
// Reads do not throw at the end of the file: the caller compares the count and names the field in its
// message. Writes throw Write "write error" if the IO accepts no bytes.
#pragma once

#include "platform/BoundedIO.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>
#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

class Stream
{
public:
    enum Mode
    {
        SEEK_FROM_START = 0,
        SEEK_FROM_CURRENT = 1,
        SEEK_FROM_END = 2
    };

    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    IO* getIO() const noexcept { return m_io.get(); }

protected:
    Stream() = default;
    // Closes the IO if the stream is open; the buffered bytes of a writer are lost.
    ~Stream();

    void setIO(IO* io) { m_io = Scoped<IO>::retained(io); }
    bool isOpen() const noexcept { return m_buffer != nullptr; }
    void openBuffer(std::size_t bufferSize);
    void closeBuffer();

    Scoped<IO> m_io;
    std::size_t m_bufferSize = 0;   // bytes
    std::int64_t m_position = 0;    // reader: the end of the buffered bytes; writer: their start
    Buffer<unsigned char> m_buffer; // null while closed
    unsigned char* m_current = nullptr;
    unsigned char* m_limit = nullptr; // reader: end of the valid bytes; writer: end of the buffer
};

class StreamReader : public Stream
{
public:
    void init(IO* io, bool open, std::size_t bufferSize);
    // Opens at the offset of the range. The length only limits the size of the buffer; use BoundedIO to limit
    // reads.
    void init(const IO::Location& location, std::size_t bufferSize);

    void open(std::size_t bufferSize);
    void close();

    std::int64_t tell() const noexcept { return m_position - (m_limit - m_current); }
    // No I/O happens here; a target within the buffered bytes keeps them.
    void seek(std::int64_t offset, Mode mode);
    // Discards the buffered bytes; the next read reads them again.
    void flush();
    // Bytes between the position and the end of the file, 0 after it. A length from a file is compared with
    // it before memory is allocated.
    std::uint64_t remaining() const;

    // Returns the number of bytes read, less than `count` only at the end of the file.
    std::size_t read(void* buffer, std::size_t count);

    // Reads one line with its newline to an XALLOC buffer that grows as needed; false at the end.
    bool get_str(char*& line, std::size_t& capacity);

    template <class T>
    [[nodiscard]] bool get_be(T& value)
    {
        unsigned char bytes[sizeof(T)];
        if (read(bytes, sizeof bytes) != sizeof bytes)
            return false;
        value = loadBigEndian<T>(bytes);
        return true;
    }

private:
    std::size_t fill();
};

class StreamWriter : public Stream
{
public:
    void init(IO* io, bool open, std::size_t bufferSize);

    void open(std::size_t bufferSize);
    // Without `flush` the buffered bytes are discarded.
    void close(bool flush);
    void flush();

    std::int64_t tell() const noexcept { return m_position + (m_current - m_buffer.get()); }
    void seek(std::int64_t offset, Mode mode);

    std::size_t write(const void* buffer, std::size_t count);
    bool put_str(const char* text, std::size_t length = static_cast<std::size_t>(-1));

    template <class T>
    bool put_be(T value)
    {
        unsigned char bytes[sizeof(T)];
        storeBigEndian(bytes, value);
        return write(bytes, sizeof bytes) == sizeof bytes;
    }

    // Copies a byte range of a file, or the next bytes of a reader; false if the source has fewer bytes.
    bool copy(IO* io, std::int64_t offset, std::int64_t length);
    bool copy(const IO::Location& from) { return copy(from.io(), from.offset(), from.length()); }
    bool copy(StreamReader& reader, std::int64_t length);
    // Copies byte ranges one after the other to an output that can seek, on all threads.
    struct Range
    {
        std::int64_t offset;
        std::int64_t length;
    };
    bool copyInParallel(IO* io, const std::vector<Range>& ranges);

private:
    template <class Read>
    bool copyBlocks(std::int64_t length, Read read);
    void writeAll(const unsigned char* bytes, std::size_t count);
};

} // namespace Quillmoran
