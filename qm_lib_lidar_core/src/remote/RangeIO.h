// The IO of a file on a server. It keeps the bytes that it has received, in extents, up to a limit: those that were
// announced with willRead(), and those around a read that was not. Reads of one place after the other get longer
// extents each time.
#pragma once

#include "remote/RangeSource.h"
#include <vxunpack/IO.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Quillmoran {

class RangeIO final : public IO
{
public:
    // `name` is that of the file in messages. The server is contacted by the first open().
    static RangeIO* create(std::unique_ptr<RangeSource> source, std::string name);

    // All functions throw RemoteRead "cannot read '%s': %s", RemoteChanged "'%s' has changed while it was
    // read" and Cancelled "operation cancelled.".
    void open() override;
    // The last call drops the extents but a few, so that many files can be open.
    void close() override;
    std::size_t pread(std::int64_t offset, void* buffer, std::size_t count) const override;
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override; // throws
    std::int64_t size() const override { return m_size; } // known while it is open
    void truncate(std::int64_t length) override;          // throws
    void unlink() override {}
    bool isRemote() const noexcept override { return true; }
    void willRead(std::span<const Range> ranges) const override;

private:
    struct Extent
    {
        std::vector<unsigned char> bytes;
        bool isReady = false;
        bool isKept = false; // also when the file is closed
        std::uint64_t lastUse = 0;

        std::int64_t length() const noexcept { return static_cast<std::int64_t>(bytes.size()); }
    };
    using Extents = std::map<std::int64_t, Extent>; // by offset; disjoint
    using Lock = std::unique_lock<std::mutex>;

    RangeIO(std::unique_ptr<RangeSource> source, std::string name);

    Extents::iterator findExtent(std::int64_t offset) const; // the one that has the byte, or end()
    std::int64_t chooseLength(std::int64_t offset, std::size_t count) const;
    // Appends the parts of a range without extents to `missing`.
    void findMissing(Range range, std::vector<Range>& missing) const;
    // Joins those with small gaps. They are sorted and disjoint.
    void join(std::vector<Range>& missing) const;
    bool isUncovered(std::int64_t offset, std::int64_t end) const;
    // Receives the ranges, which have no extents, without holding the lock.
    void fetch(Lock& lock, std::span<const Range> ranges) const;
    void dropOld() const;
    void throwFailure(const RangeSource::Result& result) const;

    const std::unique_ptr<RangeSource> m_source;
    const std::string m_name;
    std::int64_t m_size = 0;
    unsigned m_openCount = 0;
    bool m_isKnown = false; // the server has been contacted

    mutable std::mutex m_mutex; // guards the following and m_openCount
    mutable std::condition_variable m_received;
    mutable Extents m_extents;
    mutable std::int64_t m_bytes = 0; // of all extents
    mutable std::int64_t m_keptBytes = 0;
    mutable std::uint64_t m_clock = 0;
};

} // namespace Quillmoran
