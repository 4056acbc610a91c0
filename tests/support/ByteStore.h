// An IO over bytes in memory. Reads are from a heap block of the exact size, so that address sanitizers detect
// a read past the end; the capacity for writes can be limited.
#pragma once

#include "platform/Stream.h"
#include <vxunpack/IO.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

class ByteStore final : public IO
{
public:
    static ByteStore* create(std::vector<std::uint8_t> bytes = {}) { return new ByteStore(std::move(bytes)); }
    static Scoped<ByteStore> make(const std::string& text = {})
    {
        return Scoped<ByteStore>(create({text.begin(), text.end()}));
    }

    void open() override { ++m_openCount; }
    void close() override { --m_openCount; }
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override
    {
        ++m_reads;
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto length = static_cast<std::int64_t>(m_bytes.size());
        if (offset < 0 || offset >= length)
            return 0;
        const std::size_t got = std::min({count, static_cast<std::size_t>(length - offset), m_maxMoved});
        std::memcpy(buffer, m_bytes.data() + offset, got);
        return got;
    }
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override
    {
        ++m_writes;
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto at = static_cast<std::size_t>(offset);
        const std::size_t taken = std::min({count, m_capacity - std::min(at, m_capacity), m_maxMoved});
        m_bytes.resize(std::max(m_bytes.size(), at + taken));
        if (taken != 0)
            std::memcpy(m_bytes.data() + at, buffer, taken);
        return taken;
    }
    std::int64_t size() const override { return static_cast<std::int64_t>(m_bytes.size()); }
    void truncate(std::int64_t length) override { m_bytes.resize(static_cast<std::size_t>(length)); }
    void unlink() override { m_unlinked = true; }

    const std::vector<std::uint8_t>& bytes() const { return m_bytes; }
    std::string text() const { return std::string(m_bytes.begin(), m_bytes.end()); }
    int openCount() const { return m_openCount; }
    int reads() const { return m_reads; }
    int writes() const { return m_writes; }
    bool unlinked() const { return m_unlinked; }
    // Writes beyond this size are short, as on a full disk.
    void setCapacity(std::size_t bytes) { m_capacity = bytes; }
    // Limits every call, so that most reads and writes are short.
    void setMaxMoved(std::size_t bytes) { m_maxMoved = bytes; }

private:
    explicit ByteStore(std::vector<std::uint8_t> bytes) : m_bytes(std::move(bytes)) {}

    mutable std::mutex m_mutex; // of the bytes while they are read and written
    mutable std::vector<std::uint8_t> m_bytes;
    std::atomic<int> m_openCount{0};
    mutable std::atomic<int> m_reads{0};
    mutable std::atomic<int> m_writes{0};
    bool m_unlinked = false;
    std::size_t m_capacity = SIZE_MAX;
    std::size_t m_maxMoved = SIZE_MAX;
};

// The bytes that write(stream) writes.
template <class Write>
std::vector<std::uint8_t> writtenBytes(const Write& write)
{
    const Scoped<ByteStore> store(ByteStore::create());
    StreamWriter stream;
    stream.init(store.get(), true, 512);
    write(stream);
    stream.close(true);
    return store->bytes();
}

} // namespace Quillmoran::Testing
