// A random-access store of bytes. Every read and write names its position, so one IO serves several streams
// and threads at once. IO::Location names a stretch of a store and keeps the store alive; BoundedIO shows a
// stretch as a store that ends where the stretch ends.
#pragma once

#include <vxunpack/Object.h>

#include <cstddef>
#include <cstdint>

namespace Quillmoran {

class QM_API IO : public Object
{
public:
    class Location;

    // Calls nest: the store stays usable until every open() has met its close().
    virtual void open() = 0;
    virtual void close() = 0;
    // Both return the number of bytes moved, which may be short; pread gives 0 at the end. Failures throw.
    virtual std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const = 0;
    virtual std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const = 0;
    virtual std::int64_t size() const = 0;
    virtual void truncate(std::int64_t length) = 0;
    // Asks for the store to be deleted when this object is destroyed.
    virtual void unlink() = 0;
};

// Reads until all bytes are there; the count is short only at the end of the store.
QM_API std::size_t readFully(const IO& io, std::int64_t offset, void* buffer, std::size_t count);
// Writes until all bytes are taken; Write "write error" when the store takes none.
QM_API void writeFully(const IO& io, std::int64_t offset, const void* buffer, std::size_t count);

class QM_API IO::Location
{
public:
    Location() = default;
    Location(IO* io, std::int64_t offset, std::int64_t length);

    void set(IO* io, std::int64_t offset, std::int64_t length);

    IO* io() const noexcept { return m_io.get(); }
    std::int64_t offset() const noexcept { return m_offset; } // position of the first byte
    std::int64_t length() const noexcept { return m_length; } // bytes

private:
    Scoped<IO> m_io;
    std::int64_t m_offset = 0;
    std::int64_t m_length = 0;
};

// Read-only view of a store that ends at the end of a stretch; positions stay those of the store. Whoever
// reads a stretch through it sees a short read where the stretch ends and needs no checks of its own.
class QM_API BoundedIO final : public IO
{
public:
    static BoundedIO* create(const Location& stretch);

    void open() override;
    void close() override;
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override; // throws
    // The stretch's end, or the end of the store if that comes first (as it was when create() ran).
    std::int64_t size() const override { return m_end; }
    void truncate(std::int64_t length) override; // throws
    void unlink() override {}

private:
    BoundedIO(const Location& stretch, std::int64_t end);

    Location m_stretch;
    std::int64_t m_end;
};

} // namespace Quillmoran
