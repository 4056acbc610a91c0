// Chooses how a channel is coded by coding samples of it: every way that fits the channel is tried on the
// first run of points, the promising ones on more runs. Ways whose sizes are within a few per cent count as
// equal, and the one that decodes faster wins: the arithmetic coder takes one symbol where the MQ coder takes
// a decision a bit plane, and deflate is faster than both.
#pragma once

#include "encode/bands/ChannelEncoder.h"
#include "encode/planning/ChannelSurvey.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Quillmoran {

// What a user may fix; what is not given is chosen.
struct ChannelChoice
{
    std::optional<TransformType> transform;
    // Whether a transform that does not suit the channel is an error; else it is as if it were not given.
    bool mustSuit = false;
    // Whether to try the transforms that smooth in place of those that keep samples at the coarse levels.
    bool smooth = false;
    std::optional<std::uint32_t> subblockSize;
};

class PlanChooser
{
public:
    // A run of consecutive points.
    struct Run
    {
        PointData points;
        std::size_t count = 0;
    };

    static constexpr std::uint32_t defaultSubblock = 4096; // samples

    PlanChooser(const std::vector<const Run*>& runs, const BandFormat& format)
        : m_runs(runs), m_format(format)
    {}

    // A coordinate's grid is kept, whatever else would be smaller. InvalidArgument when a transform that must suit the
    // channel does not.
    ChannelPlan choose(const ChannelInfo& channel, int channelIndex, const ChannelSurvey& survey,
                       ChannelChoice choice) const;

private:
    struct Trial;
    struct Candidate;

    // The ways to hold the channel, each with the transforms to try for its parts.
    std::vector<Candidate> makeCandidates(const ChannelInfo& channel, const ChannelSurvey& survey,
                                          const ChannelChoice& choice) const;
    bool suits(TransformType transform, const ChannelInfo& channel, const ChannelSurvey& survey) const;
    std::int64_t measure(const KernelPlan& plan, int channelIndex, std::size_t run) const;
    Trial chooseTransform(KernelPlan& plan, int channelIndex, const std::vector<TransformType>& transforms,
                          const ChannelChoice& choice) const;
    void chooseSubblock(KernelPlan& plan, int channelIndex, const ChannelChoice& choice) const;

    const std::vector<const Run*>& m_runs;
    BandFormat m_format;
};

} // namespace Quillmoran
