// A read-only view of a byte range of a file. Positions are those of the file. Reads are short at the end of
// the range, so that decoders of a range need no checks of their own.
#pragma once

#include <vxunpack/IO.h>

namespace Quillmoran {

class BoundedIO final : public IO
{
public:
    static BoundedIO* create(const Location& range);

    void open() override { m_range.io()->open(); }
    void close() override { m_range.io()->close(); }
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override; // throws
    // The end of the range, or the end that the file had when create() ran if that is smaller.
    std::int64_t size() const override { return m_end; }
    void truncate(std::int64_t length) override; // throws
    void unlink() override {}
    bool isRemote() const noexcept override { return m_range.io()->isRemote(); }
    void willRead(std::span<const Range> ranges) const override { m_range.io()->willRead(ranges); }

private:
    BoundedIO(const Location& range, std::int64_t end) : m_range(range), m_end(end) {}

    Location m_range;
    std::int64_t m_end;
};

} // namespace Quillmoran
