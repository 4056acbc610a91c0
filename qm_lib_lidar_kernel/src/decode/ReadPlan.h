// What a query of a remote file will read, announced ahead of the decoder in few large steps.
//
// The points of a query and the sizes of the subblocks determine the samples that each band must deliver, the headers
// of its subblocks where their payloads are. So a step announces the headers of its points in all bands, walks them,
// and announces the payloads. While the points of a step are decoded, the next one is received. A query whose bands
// are small and needed as a whole is one step, without walking.
//
// The plan is a help only: what it misses is read when it is needed.
#pragma once

#include "decode/bands/SubblockCheckpoints.h"
#include "decode/container/WaveletDecoderInfo.h"
#include "platform/Stream.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <vector>

namespace Quillmoran {

class MemoryBudget;
class SubblockReader;

class ReadPlan
{
public:
    using PointRanges = std::vector<WaveletDecoderInfo::PointRange>;

    // `info`, whose file is open and stays open, must outlive the plan.
    ReadPlan(const WaveletDecoderInfo& info, std::uint32_t level) : m_info(info), m_level(level) {}
    // Waits for the step that is being received.
    ~ReadPlan();
    ReadPlan(const ReadPlan&) = delete;
    ReadPlan& operator=(const ReadPlan&) = delete;

    // Announces what is read before the points: the digests of the file, and the index if the box needs it.
    static void announceDescription(const WaveletDecoderInfo& info, const Bounds& bounds, bool verifies);

    // Adds a band of a channel, before start(). The reader must outlive the plan. Sets `ranges.planned`.
    void addBand(const SubblockReader& reader, std::size_t band, std::int64_t numSamples, BandRanges& ranges,
                 MemoryBudget& budget);
    // `ranges` are those of the query at its level. If only `samplePoints` points will probably be read, which is
    // not 0 then, they are the first step, and the next one waits until it is needed.
    void start(PointRanges ranges, std::int64_t samplePoints);
    // Returns when all is received that the first `numPoints` points of the ranges need. Throws the errors of
    // the file.
    void require(std::int64_t numPoints);

private:
    // Subblocks [begin, end) of a band.
    struct Interval
    {
        std::uint64_t begin;
        std::uint64_t end;
    };
    struct Band
    {
        const SubblockReader* reader;
        std::uint32_t numStages; // from the level of the query to the band
        std::size_t padding;     // of each stage, pairs of samples
        std::uint64_t numSubblocks;
        BandRanges ranges;
        std::vector<Interval> wanted; // of the current step, in order

        Scoped<IO> headerRange; // a walk through the headers
        StreamReader headers;
        std::uint64_t next = 0; // subblock
        std::size_t pendingZeros = 0;
        std::int64_t data = 0;  // the position of the next payload
        bool isDamaged = false; // the decoder will report it
        PlannedPositions positions;
    };

    void announceWhole();
    void receiveStep();
    PointRanges takePoints(std::int64_t count);
    static void findWanted(Band& band, const PointRanges& points);
    static IO::Range estimateHeaders(const Band& band);
    // Reads headers up to a subblock. Throws SubbandRead for damaged ones.
    static void walkTo(Band& band, std::uint64_t subblock);
    static void walk(Band& band, std::vector<IO::Range>& reads);
    void startNext();

    const WaveletDecoderInfo& m_info;
    const std::uint32_t m_level;
    std::deque<Band> m_bands;
    PointRanges m_ranges; // that no step has yet
    std::size_t m_range = 0;
    std::int64_t m_stepPoints = 0;
    std::int64_t m_maxStepPoints = 0;
    std::int64_t m_planned = 0;    // points of all steps
    std::int64_t m_received = 0;   // of those that are complete
    bool m_isComplete = false;     // there are no more steps
    bool m_readsAhead = true;      // the next step is received before it is needed
    std::future<void> m_receiving; // last, since it uses the other members
};

} // namespace Quillmoran
