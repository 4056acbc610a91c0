// A file of which only some byte ranges are in memory. A read of other bytes throws BytesMissing; the caller then gets
// these bytes, adds them, and starts again.
#pragma once

#include <vxunpack/IO.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Quillmoran {

// Not an Error, so that it is not taken for damage of the file.
struct BytesMissing
{
    std::vector<IO::Range> ranges;
};

class RangeFile final : public IO
{
public:
    static RangeFile* create(std::int64_t size) { return new RangeFile(size); }

    // Memory for the bytes of a range that are to be added; the caller fills it before the next read. Throws
    // InvalidArgument for a range that is not in the file.
    std::span<std::uint8_t> add(std::int64_t offset, std::size_t length);
    // Drops the ranges that were added after the last call of keep(). The end of a query.
    void drop();
    void keep() noexcept;

    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override; // throws
    std::int64_t size() const override { return m_size; }
    void truncate(std::int64_t length) override; // throws
    void unlink() override {}
    bool isRemote() const noexcept override { return true; }
    void willRead(std::span<const Range> ranges) const override;

private:
    struct Extent
    {
        std::vector<std::uint8_t> bytes;
        bool isKept = false;
    };

    explicit RangeFile(std::int64_t size) : m_size(size) {}

    [[noreturn]] void throwMissing(std::int64_t offset, std::int64_t count) const;
    // The number of bytes in memory from an offset on; they are copied unless `buffer` is null.
    std::size_t copy(std::int64_t offset, std::uint8_t* buffer, std::size_t count) const;

    static constexpr std::int64_t firstAhead = 16 << 10;

    const std::int64_t m_size;
    // Of reads that were not announced: where the last one that was missing ended, and the bytes that the next one of a
    // sequence asks for, which doubles, since each of them starts the query again.
    mutable std::int64_t m_sequenceEnd = 0;
    mutable std::int64_t m_ahead = firstAhead;
    std::map<std::int64_t, Extent> m_extents; // by offset; they may overlap
};

} // namespace Quillmoran
