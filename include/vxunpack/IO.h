// A random-access sequence of bytes, usually a file. Every read and write names its position, so that several
// threads and streams can use one IO. Derive from it to read or write other kinds of streams.
#pragma once

#include <vxunpack/Object.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Quillmoran {

// Implementations must allow concurrent calls of all functions except truncate() and unlink().
class QM_API IO : public Object
{
public:
    class Location;

    // Calls nest: the IO stays open until each open() has been matched by a close(). Failures throw Error.
    virtual void open() = 0;
    virtual void close() = 0;
    // Both return the number of bytes transferred, which may be less than `count`; pread() returns 0 at the
    // end of the file. Failures throw Error.
    virtual std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const = 0;
    virtual std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const = 0;
    virtual std::int64_t size() const = 0; // bytes
    virtual void truncate(std::int64_t length) = 0;
    // Requests that the file be removed when this object is destroyed.
    virtual void unlink() = 0;

    struct Range
    {
        std::int64_t offset; // of the first byte
        std::int64_t length; // bytes
    };
    // Whether each read waits for a server, so that callers should announce reads together.
    virtual bool isRemote() const noexcept { return false; }
    // Announces that these ranges, in any order, will be read soon. A remote file is asked for all of them
    // together, and this returns when it has answered; other files do nothing. Failures throw Error.
    virtual void willRead(std::span<const Range> /*ranges*/) const {}
};

// Reads `count` bytes; returns less only at the end of the file.
QM_API std::size_t readFully(const IO& io, std::int64_t offset, void* buffer, std::size_t count);
// Writes all bytes. Throws Write "write error" if the IO accepts no more.
QM_API void writeFully(const IO& io, std::int64_t offset, const void* buffer, std::size_t count);

// A byte range of an IO, which it retains.
class QM_API IO::Location
{
public:
    Location() = default;
    Location(IO* io, std::int64_t offset, std::int64_t length);

    void set(IO* io, std::int64_t offset, std::int64_t length);

    IO* io() const noexcept { return m_io.get(); }
    std::int64_t offset() const noexcept { return m_offset; } // of the first byte
    std::int64_t length() const noexcept { return m_length; } // bytes

private:
    Scoped<IO> m_io;
    std::int64_t m_offset = 0;
    std::int64_t m_length = 0;
};

} // namespace Quillmoran
