// Encodes blocks of points, channels and subblocks in parallel, and collects the boxes of the index and the
// digests of the samples. The bytes do not depend on the number of threads: the order of the points determines
// the samples of each subblock, and each subblock is encoded independently.
#pragma once

#include "common/container/Digest.h"
#include "encode/bands/ChannelEncoder.h"
#include "encode/container/IndexWriter.h"
#include <vxunpack/PointData.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace Quillmoran {

class PointEncoder
{
public:
    // Plan i belongs to channel i of the points.
    PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                 std::uint32_t pointsPerEntry);

    // Encodes a block and runs `meanwhile` in parallel, also if it returns false. `examine` is called first for
    // each channel, on the thread that encodes it. Returns false if it returned false for a channel, or if a
    // coder refused the samples; the encoder can then only be destroyed.
    bool encode(const PointData& points, std::size_t count, const std::function<bool(std::size_t)>& examine,
                const std::function<void()>& meanwhile);
    // Encodes the remaining samples. Returns false if a coder refused them.
    bool finish();
    // The error of the coder that refused samples; null if there is none.
    const std::exception_ptr& getRefusal() const noexcept { return m_refusal; }

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
    // Digests a channel of the points, divides its parts into subblocks and encodes those that are complete.
    void encodeChannel(std::size_t channel, const PointData& points, std::size_t count,
                       std::vector<std::exception_ptr>& refusals);
    // Encodes and commits the pending subblocks. Returns the error of a coder that refused one, if any.
    static std::exception_ptr encodePending(ChannelEncoder& channel);
    // By kernel channel. Returns whether there are none.
    bool noteRefusal(const std::vector<std::exception_ptr>& refusals);

    SpillFile m_file;
    std::vector<std::unique_ptr<ChannelEncoder>> m_channels;
    IndexWriter m_index;
    std::vector<ChannelDigests> m_digests;
    std::vector<std::size_t> m_firstParts; // by point channel: its first kernel channel, and the end
    std::exception_ptr m_refusal;
    std::int64_t m_numPoints = 0;
};

} // namespace Quillmoran
