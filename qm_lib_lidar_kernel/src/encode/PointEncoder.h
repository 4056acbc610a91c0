// The second of two passes over the source of a file: encodes the points, channels and subblocks in parallel,
// and collects the boxes of the index and the digests of the samples. The bytes do not depend on the number of
// threads: the order of the points determines the samples of each subblock, and each subblock is encoded
// independently.
#pragma once

#include "common/container/Digest.h"
#include "encode/BlockReader.h"
#include "encode/bands/ChannelEncoder.h"
#include "encode/container/IndexWriter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Quillmoran {

class PointEncoder
{
public:
    // Plan i belongs to channel i of the points.
    PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                 std::uint32_t pointsPerEntry);

    // Encodes all blocks of the reader. `onBlock` is called with the number of points of each block.
    void encode(BlockReader& reader, const std::function<void(std::size_t)>& onBlock);

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    // Whether all samples were in the ranges of their plans. Otherwise readers cannot decode the file.
    bool isWithinPlans() const;
    // The kernel channels in the order of their records.
    const std::vector<std::unique_ptr<ChannelEncoder>>& getChannels() const noexcept { return m_channels; }
    const IndexWriter& getIndex() const noexcept { return m_index; }
    // Of the channels of the points, in their order.
    const std::vector<ChannelDigests>& getDigests() const noexcept { return m_digests; }

private:
    // Encodes the pending subblocks, runs `meanwhile` in parallel, then commits them.
    void encodePending(const std::function<void()>& meanwhile);

    SpillFile m_file;
    std::vector<std::unique_ptr<ChannelEncoder>> m_channels;
    IndexWriter m_index;
    std::vector<ChannelDigests> m_digests;
    // By kernel channel: the point channel whose digests its tasks compute. One of the parts of a split channel
    // has one.
    std::vector<std::optional<std::size_t>> m_digested;
    std::int64_t m_numPoints = 0;
};

} // namespace Quillmoran
