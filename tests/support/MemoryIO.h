// A store of bytes in memory, which shows a test what was written and can run full.
#pragma once

#include "platform/IO.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace Quillmoran::TestSupport {

class MemoryIO final : public IO
{
public:
    static Scoped<MemoryIO> make(std::string content = {})
    {
        return Scoped<MemoryIO>(new MemoryIO(std::move(content)));
    }

    mutable std::string content;
    std::size_t capacity = static_cast<std::size_t>(-1); // bytes; writes beyond are short
    int openCount = 0;
    mutable int numWrites = 0;
    bool unlinked = false;

    void open() override { ++openCount; }
    void close() override { --openCount; }
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override
    {
        const auto from = std::min(static_cast<std::size_t>(offset), content.size());
        return content.copy(static_cast<char*>(buffer), count, from);
    }
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override
    {
        ++numWrites;
        const auto at = static_cast<std::size_t>(offset);
        const std::size_t taken = std::min(count, capacity - std::min(at, capacity));
        content.resize(std::max(content.size(), at + taken));
        content.replace(at, taken, static_cast<const char*>(buffer), taken);
        return taken;
    }
    std::int64_t size() const override { return static_cast<std::int64_t>(content.size()); }
    void truncate(std::int64_t length) override { content.resize(static_cast<std::size_t>(length)); }
    void unlink() override { unlinked = true; }

private:
    explicit MemoryIO(std::string bytes) : content(std::move(bytes)) {}
};

} // namespace Quillmoran::TestSupport
