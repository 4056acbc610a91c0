// A chunk in memory, so that its digest can be computed before the file holds it. Positions are those of the
// file, since some chunks store positions.
#pragma once

#include <vxunpack/IO.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Quillmoran {

class ChunkBuffer final : public IO
{
public:
    // `begin` is the position of the chunk in the file.
    static ChunkBuffer* create(std::int64_t begin) { return new ChunkBuffer(begin); }

    const std::vector<unsigned char>& getBytes() const noexcept { return m_bytes; }

    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t, void*, std::size_t) const override { return 0; } // only written
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override
    {
        const auto at = static_cast<std::size_t>(offset - m_begin);
        m_bytes.resize(std::max(m_bytes.size(), at + count));
        std::memcpy(m_bytes.data() + at, buffer, count);
        return count;
    }
    std::int64_t size() const override { return m_begin + static_cast<std::int64_t>(m_bytes.size()); }
    void truncate(std::int64_t length) override
    {
        m_bytes.resize(static_cast<std::size_t>(length - m_begin));
    }
    void unlink() override {}

private:
    explicit ChunkBuffer(std::int64_t begin) : m_begin(begin) {}

    std::int64_t m_begin;
    mutable std::vector<unsigned char> m_bytes; // IO declares pwrite() const
};

} // namespace Quillmoran
