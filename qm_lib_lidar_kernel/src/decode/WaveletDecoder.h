// The iterator over the points of a compressed file: decodes the ranges of points that a query can meet, the
// subblocks of all channels in parallel, and keeps the points of the box that the sampling takes. While the
// points of one block are taken, the next one is decoded.
#pragma once

#include "decode/MemoryBudget.h"
#include "decode/bands/SubbandSource.h"
#include "decode/coders/SubblockReader.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/BackgroundTask.h"
#include "platform/OpenIO.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointIterator.h>

#include <memory>
#include <optional>
#include <vector>

namespace Quillmoran {

class WaveletDecoder final : public PointIterator
{
public:
    static WaveletDecoder* create();

    // Keeps the file's information. Errors -1: "could not find channel '%s'", "unsupported datatype"; those
    // of the coders; InvalidArgument "must have x, y, and z channels"; WaveletHeaderRead "bad read -- channel info", here or while
    // decoding, for chains that take more memory than a file of this size can explain.
    void init(const WaveletDecoderInfo& info, const Bounds& bounds, double fraction, const PointInfo& layout,
              ProgressDelegate* delegate);

    // Errors of damaged bands, behind which no more points come; a cancelled delegate is Cancelled "operation
    // cancelled.".
    std::size_t getNextPoints(PointData& buffer) override;

private:
    struct Channel
    {
        WaveletDecoderChannelInfo info;
        std::unique_ptr<SubblockReader> reader;
        std::unique_ptr<SubbandSource> root;
        std::vector<CodedSubblock> work; // of the block that is being decoded
    };
    struct Block
    {
        PointData points;
        std::size_t fill = 0; // points in it
    };

    WaveletDecoder() = default;
    ~WaveletDecoder() override;

    void selectChannels(const PointInfo& layout);
    bool isMergeable(const WaveletDecoderInfo::SplitChannel& split, DataType wanted) const;
    void addChannel(std::size_t fileChannel, ConversionAction action, std::size_t pointChannel);
    // Points per block, fewer when they have many channels.
    std::size_t getBlockPoints(const PointInfo& layout) const;
    void begin(std::int64_t position);
    void buildPipeline(Channel& channel);
    void seek(std::int64_t position);

    // Decodes the next block of points that no one reads.
    void decode(Block& block);
    void decodeChannel(Channel& channel, Block& block);
    static void decodeSubblocks(const Channel& channel);
    // Begins to decode the points that follow; false when every range is done.
    bool startNext();
    // Makes the current block hold points that were not taken; false when there are no more.
    bool refill();

    Scoped<const WaveletDecoderInfo> m_info;
    std::optional<OpenIO> m_file; // the chains open it again when they come to read
    MemoryBudget m_budget;
    std::uint32_t m_level = 0;
    std::vector<Channel> m_channels; // the parts of a split channel stand together: fraction, exponent, sign
    std::vector<WaveletDecoderInfo::PointRange> m_ranges;
    std::size_t m_range = 0; // the current one; its start moves as it is decoded

    Block m_blocks[2];
    std::size_t m_current = 0; // of the blocks: the other one is being decoded
    std::size_t m_cursor = 0;  // next point of the current block
    BackgroundTask m_decoding; // last: it uses the others
};

} // namespace Quillmoran
