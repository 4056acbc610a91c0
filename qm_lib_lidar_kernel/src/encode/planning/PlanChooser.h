// Chooses the coding of a channel by trying it: every coding that supports the channel is tried on the first
// run of points, the promising ones on more runs. Sizes within a few per cent count as equal; then the coding
// that decodes faster wins: the arithmetic coder decodes a symbol where the MQ coder decodes a decision per
// bit plane, and deflate is faster than both. If the smallest file is preferred, the promising codings are all
// used for the whole channel, also with larger subblocks, which runs are too short to compare.
#pragma once

#include "encode/bands/ChannelEncoder.h"
#include "encode/planning/ChannelSurvey.h"
#include <vxunpack/EncodeOptions.h>

#include <cstdint>
#include <vector>

namespace Quillmoran {

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

    // A coordinate keeps its grid even if another coding is smaller. Throws InvalidArgument if the channel
    // does not support a required transform.
    ChannelPlan choose(const ChannelInfo& channel, std::size_t channelIndex, const ChannelSurvey& survey,
                       ChannelChoice choice) const;
    // Whether the transform restores all samples of the channel.
    bool supports(TransformType transform, const ChannelInfo& channel, const ChannelSurvey& survey) const;

private:
    struct Trial;
    struct Candidate;

    // The possible plans of the channel, each with the transforms to try for its parts.
    std::vector<Candidate> makeCandidates(const ChannelInfo& channel, const ChannelSurvey& survey,
                                          const ChannelChoice& choice) const;
    // The coded size of a run in bytes.
    std::int64_t measure(const KernelPlan& plan, std::size_t channelIndex, std::size_t run) const;
    double getWeight(TransformType transform) const; // of bytes
    // Sets the other codings of the best plan from the trials.
    void chooseOthers(Trial& best, const std::vector<Trial>& trials, const ChannelChoice& choice) const;
    // The best trial. Its cost is that of all runs if `needsCost`; otherwise trials end when one is left.
    Trial chooseTransform(std::vector<Trial> trials, std::size_t channelIndex, const ChannelChoice& choice,
                          bool needsCost) const;
    ChannelPlan chooseCandidate(const std::vector<Candidate>& candidates, std::size_t channelIndex,
                                const ChannelChoice& choice) const;
    void chooseSubblock(KernelPlan& plan, std::size_t channelIndex, const ChannelChoice& choice) const;

    const std::vector<const Run*>& m_runs;
    BandFormat m_format;
};

} // namespace Quillmoran
