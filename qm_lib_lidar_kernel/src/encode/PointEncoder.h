// The second of the two passes of writing a file: codes the points into bands, channels and subblocks in
// parallel, and collects the boxes of the index. The bytes do not depend on the number of threads: which
// subblock holds what is settled by the order of the points, and each is coded on its own.
#pragma once

#include "encode/BlockReader.h"
#include "encode/bands/ChannelEncoder.h"
#include "encode/container/IndexWriter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Quillmoran {

class PointEncoder
{
public:
    // Plan i is that of channel i of the points.
    PointEncoder(const std::vector<ChannelPlan>& plans, const BandFormat& format,
                 std::uint32_t pointsPerEntry);

    // Codes all blocks of the reader. `onBlock` is called with the number of points of each.
    void encode(BlockReader& reader, const std::function<void(std::size_t)>& onBlock);

    std::int64_t getNumPoints() const noexcept { return m_numPoints; }
    // Whether no sample lay outside the range that its plan was made for: only then can a reader undo what
    // was done.
    bool isWithinPlans() const;
    // The kernel channels in the order of their records.
    const std::vector<std::unique_ptr<ChannelEncoder>>& getChannels() const noexcept { return m_channels; }
    const IndexWriter& getIndex() const noexcept { return m_index; }

private:
    // Encodes what is pending while `meanwhile` runs beside it, and commits it.
    void encodePending(const std::function<void()>& meanwhile);

    SpillFile m_file;
    std::vector<std::unique_ptr<ChannelEncoder>> m_channels;
    IndexWriter m_index;
    std::int64_t m_numPoints = 0;
};

} // namespace Quillmoran
