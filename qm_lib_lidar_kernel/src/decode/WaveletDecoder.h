// The iterator over the points of a compressed file. It decodes the ranges of points that can match a query,
// the subblocks of all channels in parallel, and returns the points that are in the box and selected by the
// sampling. While the caller takes the points of one block, the next block is decoded.
#pragma once

#include "common/bands/KernelConversion.h"
#include "decode/MemoryBudget.h"
#include "decode/bands/SubbandSource.h"
#include "decode/coders/SubblockReader.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/BackgroundTask.h"
#include "platform/OpenIO.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointIterator.h>

#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace Quillmoran {

class WaveletDecoder final : public PointIterator
{
public:
    static WaveletDecoder* create();

    // Retains `info`. General: "could not find channel '%s'", "unsupported datatype". Throws InvalidArgument
    // "must have x, y, and z channels". Throws WaveletHeaderRead "bad read -- channel info", here or while
    // decoding, if the chains need more memory than a file of this size justifies. Also the errors of the
    // coders.
    void init(const WaveletDecoderInfo& info, const Bounds& bounds, double fraction, const PointInfo& layout,
              ProgressDelegate* delegate);

    // SubbandRead or Inflate for a damaged band, after which there are no more points; Cancelled "operation
    // cancelled." if the delegate is cancelled.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    struct Channel
    {
        const WaveletDecoderChannelInfo* record; // of m_info
        KernelConversion conversion;
        KernelSamples samples;
        std::unique_ptr<SubblockReader> reader;
        std::unique_ptr<SubbandSource> root;
        std::vector<CodedSubblock> work; // the subblocks of the block that is being decoded
    };
    struct Block
    {
        PointData points;
        std::size_t fill = 0; // number of points
    };

    WaveletDecoder() = default;
    ~WaveletDecoder() override;

    void selectChannels(const PointInfo& layout);
    bool isMergeable(const WaveletDecoderInfo::SplitChannel& split, DataType wanted) const;
    void addChannel(std::size_t fileChannel, std::size_t pointChannel);
    // Points per block; fewer for points with many channels.
    std::size_t getBlockPoints(const PointInfo& layout) const;
    void begin(std::int64_t position);
    void buildPipeline(Channel& channel);

    // Decodes a block that is not the current one.
    void decode(Block& block);
    void decodeChannel(Channel& channel, Block& block);
    static void decodeSubblocks(const Channel& channel);
    // Starts to decode the next block; false if there are no more ranges.
    bool startNext();
    // Makes the next block current; false if there are no more points.
    bool refill();

    Scoped<const WaveletDecoderInfo> m_info;
    std::optional<OpenIO> m_file; // kept open, since the chains open and close it
    MemoryBudget m_budget;
    std::uint32_t m_level = 0;
    std::deque<Channel> m_channels; // the parts of a split channel are consecutive: fraction, exponent, sign
    std::vector<WaveletDecoderInfo::PointRange> m_ranges;
    std::size_t m_range = 0; // the current range; its start moves as it is decoded

    Block m_blocks[2];
    std::size_t m_current = 0; // index of the current block; the other one is being decoded
    std::size_t m_cursor = 0;  // next point of the current block
    BackgroundTask m_decoding; // last, since it uses the other members
};

} // namespace Quillmoran
