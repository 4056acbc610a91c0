// Encodes blocks of points, and collects the boxes of the index and the digests of the samples. Channels and
// the index take the blocks in order, but not at the same time. The bytes do not depend on the number of
// threads: the order of the points determines the samples of each subblock, and each subblock is encoded
// independently.
#pragma once

#include "common/container/Digest.h"
#include "encode/bands/ChannelEncoder.h"
#include "encode/container/IndexWriter.h"
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <vector>

namespace Quillmoran {

class PointEncoder
{
public:
    // Plan i belongs to channel i of the points.
    PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                 std::uint32_t pointsPerEntry);

    // Encodes a channel of the next block. Different threads may encode different channels, and add blocks to
    // the index. Returns the error of a coder that refused the samples, if any; the encoder can then only be
    // destroyed.
    std::exception_ptr encode(std::size_t channel, const PointData& points, std::size_t count);
    void addToIndex(const PointData& points, std::size_t count);
    // Encodes the remaining samples. Returns the error of a coder that refused them, if any.
    std::exception_ptr finish();

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    // Whether all samples were in the ranges of their plans.
    bool isWithinPlans() const;
    // After finish(): whether readers decode the file; see ChannelEncoder.
    bool isReadable() const;
    // The kernel channels in the order of their records.
    const std::vector<std::unique_ptr<ChannelEncoder>>& getChannels() const noexcept { return m_channels; }
    const IndexWriter& getIndex() const noexcept { return m_index; }
    // Of the channels of the points, in their order.
    const std::vector<ChannelDigests>& getDigests() const noexcept { return m_digests; }

private:
    // Encodes and commits the pending subblocks. Returns the error of a coder that refused one, if any.
    static std::exception_ptr encodePending(ChannelEncoder& channel);

    SpillFile m_file;
    std::vector<std::unique_ptr<ChannelEncoder>> m_channels;
    IndexWriter m_index;
    std::vector<ChannelDigests> m_digests;
    std::vector<std::size_t> m_firstParts; // by point channel: its first kernel channel, and the end
    std::int64_t m_numPoints = 0;
};

} // namespace Quillmoran
