// Positions in a band at which reading can resume, so that a backward seek does not read all headers from the
// start of the band.
#pragma once

#include "platform/Mutex.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quillmoran {

// Keeps a bounded number of checkpoints, evenly spread over the headers that have been read; when it is full,
// it drops every second one. It also keeps the latest checkpoints: a range of points starts up to a few
// samples before the end of the samples that were read for the previous range, and there can be a range for
// every second subblock.
class SubblockCheckpoints
{
public:
    struct Checkpoint
    {
        std::uint64_t subblock = 0; // the next one to be read
        std::int64_t headers = 0;   // positions of the streams
        std::int64_t data = 0;
        std::size_t pendingZeros = 0;
    };

    // `numLatest` is the number of latest checkpoints to keep.
    void reset(const Checkpoint& start, std::size_t numLatest);
    // Adds a checkpoint to the latest ones, and to the spread ones if it is at least a stride after the last
    // of them.
    void offer(const Checkpoint& checkpoint);
    // The last checkpoint at or before a subblock.
    const Checkpoint& before(std::uint64_t subblock) const;

private:
    static constexpr std::size_t capacity = 256;
    static constexpr std::int64_t minStride =
        64; // checkpoints must use less memory than the headers they skip

    std::int64_t m_stride = minStride; // bytes of headers
    std::vector<Checkpoint> m_spread;
    std::vector<Checkpoint> m_latest; // a ring
    std::size_t m_oldest = 0;
};

// Positions in a band that a plan of its reads has passed, the most recent ones. May be used from any thread.
class PlannedPositions
{
public:
    using Checkpoint = SubblockCheckpoints::Checkpoint;

    // In ascending order.
    void add(const Checkpoint& checkpoint);
    // Replaces a checkpoint by a later one at or before a subblock, if there is one.
    void improve(std::uint64_t subblock, Checkpoint& checkpoint) const;

private:
    static constexpr std::size_t capacity = 4096;

    mutable Mutex m_mutex;
    std::vector<Checkpoint> m_checkpoints;
};

} // namespace Quillmoran
