// The iterator over the points of a compressed file. It decodes the ranges of points that can match a query,
// the subblocks of all channels in parallel, and returns the points that are in the box and selected by the
// sampling. While the caller takes the points of one block, the next blocks are decoded, by each channel as
// soon as it has decoded the block before. Samples are compared with their digests in the tasks that decode
// them.
#pragma once

#include "common/bands/KernelConversion.h"
#include "common/container/Digest.h"
#include "decode/MemoryBudget.h"
#include "decode/ReadPlan.h"
#include "decode/bands/SubbandSource.h"
#include "decode/coders/SubblockReader.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/OpenIO.h"
#include "platform/TaskLanes.h"
#include <vxunpack/PointData.h>
#include <vxunpack/PointIterator.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {

class WaveletDecoder final : public PointIterator
{
public:
    static WaveletDecoder* create();

    // Retains `info`. General: "could not find channel '%s'", "unsupported datatype". Throws InvalidArgument
    // "must have x, y, and z channels". Throws WaveletHeaderRead "bad read -- channel info", here or while
    // decoding, if the chains need more memory than a file of this size justifies. Also the errors of the
    // coders and, if `verifies` is set, of the digests.
    void init(const WaveletDecoderInfo& info, const Bounds& bounds, double fraction, const PointInfo& layout,
              bool verifies, ProgressDelegate* delegate);

    // Leaves the values of the channel unspecified instead of decoding them. Call it before init().
    void skipChannel(const char* name) { m_skipped.emplace_back(name); }

    // Decodes these ranges of points of a level instead of those that the fraction and the index select, and
    // drops those that are not in the box. A remote file is asked for all of them in one step or, if `isSample`
    // is set, since only a few will be taken, for the first ones. Call it before init(), with ranges that
    // getPointRanges() of the file returns, or parts of them.
    void takeOnly(std::uint32_t level, std::vector<WaveletDecoderInfo::PointRange> ranges, bool isSample)
    {
        m_chosen = {level, std::move(ranges), isSample};
    }

    // SubbandRead or Inflate for a damaged band, DigestDiffers "channel %s, points %d to %d: digest differs"
    // for samples that differ from their digest, after which there are no more points; Cancelled "operation
    // cancelled." if the delegate is cancelled.
    std::size_t getNextPoints(PointData& buffer) override;

private:
    // Compares the samples of a point channel with their digests.
    struct Verifier
    {
        Verifier(unsigned blockBits, std::size_t fileChannel) : current(blockBits), channel(fileChannel) {}

        BlockDigest current;
        std::size_t channel;         // in the layout of the file
        ChannelData converted;       // the samples in the type of the file, if the query has another one
        std::int64_t differing = -1; // the first block that differs
    };
    struct Channel
    {
        const WaveletDecoderChannelInfo* record; // of m_info
        std::size_t pointChannel;                // in the layout of the query
        KernelConversion conversion;
        KernelSamples samples;
        std::unique_ptr<SubblockReader> reader;
        std::unique_ptr<SubbandSource> root;
        std::vector<CodedSubblock> work;    // the subblocks of the block that is being decoded
        std::unique_ptr<Verifier> verifier; // of whole channels and fractions, if samples are compared
    };
    struct Block
    {
        PointData points;
        std::size_t fill = 0;                // number of points
        std::int64_t begin = 0;              // index, at the level of the query, of the first point
        bool isSeparate = false;             // it does not continue the block before
        std::vector<std::int64_t> differing; // by lane: the first block of samples that differs, or -1

        std::int64_t end() const { return begin + static_cast<std::int64_t>(fill); }
    };
    // The channels that are decoded to one point channel: the parts of a split channel, or a whole one.
    struct Lane
    {
        std::size_t first; // index in m_channels
        std::size_t count;
    };

    WaveletDecoder() = default;
    ~WaveletDecoder() override;

    // The number of points that will be taken, if that is known to be few; otherwise 0.
    std::int64_t getSamplePoints(const PointInfo& layout) const;
    void selectChannels(const PointInfo& layout);
    bool isMergeable(const WaveletDecoderInfo::SplitChannel& split, DataType wanted) const;
    void addChannel(std::size_t fileChannel, std::size_t pointChannel);
    // Points per block; fewer for points with many channels.
    std::size_t getBlockPoints(const PointInfo& layout) const;
    void begin(std::int64_t position);
    void buildPipeline(Channel& channel);
    // The byte ranges of a band, which the plan knows from here on.
    BandRanges planBand(const Channel& channel, std::size_t band, std::int64_t numSamples);

    // Compares all that a query needs but the samples, and finds the digests of these.
    void verifyDescription();
    void addVerifiers();
    void verifySamples(Channel& channel, const Block& block) const;
    void throwIfDiffering(const Block& block) const;

    void addLanes();
    // Decodes the channels of a lane. Blocks of a lane are decoded in their order.
    void decode(std::size_t lane, Block& block);
    void decodeChannel(Channel& channel, Block& block) const;
    static void decodeSubblocks(const Channel& channel);
    // Starts to decode the next block; false if there are no more ranges.
    bool startNext();
    // The next block is decoded when this returns. Throws the error of the lowest channel that failed.
    void finishNext();
    // Makes the next block current; false if there are no more points.
    bool refill();

    struct ChosenPoints
    {
        std::uint32_t level;
        std::vector<WaveletDecoderInfo::PointRange> ranges;
        bool isSample;
    };

    Scoped<const WaveletDecoderInfo> m_info;
    std::optional<OpenIO> m_file; // kept open, since the chains open and close it
    MemoryBudget m_budget;
    std::uint32_t m_level = 0;
    std::optional<ChosenPoints> m_chosen;
    std::vector<std::string> m_skipped; // channels that are not decoded
    std::deque<Channel> m_channels; // the parts of a split channel are consecutive: fraction, exponent, sign
    const StoredDigests::Samples* m_digests = nullptr; // of m_info; null unless samples are compared
    std::vector<WaveletDecoderInfo::PointRange> m_ranges;
    std::size_t m_range = 0;  // the current range; its start moves as it is decoded
    bool m_isNewRange = true; // of the current range, no block is started

    std::unique_ptr<ReadPlan> m_plan; // of a remote file; uses the readers of the channels
    std::int64_t m_numStarted = 0;    // points

    std::vector<Lane> m_lanes;
    std::vector<Block> m_blocks;
    std::size_t m_current = 0;           // index of the current block; the others are being decoded, or free
    std::size_t m_cursor = 0;            // next point of the current block
    std::optional<TaskLanes> m_decoding; // a slot per block; last, since it uses the other members
};

} // namespace Quillmoran
