#include "encode/planning/PlanChooser.h"

#include "common/coders/Coder.h"
#include "common/lifting/LiftingScheme.h"
#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Quillmoran {

namespace {

// Transforms whose total cost after a sample run exceeds the best one by more than this factor are not tried
// on the remaining runs.
constexpr double hopeless = 1.1;
// The smallest subblock is chosen whose size is within this factor of the best one.
constexpr double smallerSubblock = 1.01;
constexpr std::uint32_t subblockSizes[] = {1024, 2048, 4096};
constexpr std::size_t subblockRuns = 2;
// If the smallest file is preferred: the codings that are used for whole channels, in samples and by their
// cost relative to the best one. In a survey of 16 channels they are as small as four sizes with all
// transforms.
constexpr std::uint32_t triedSubblocks[] = {4096, 65536};
constexpr double promising = 1.05;

// The transforms to try by default: without lifting, and lifted with the update step if `smooth`, without it
// otherwise.
std::vector<TransformType> listTransforms(bool floatingPoint, bool smooth)
{
    std::vector<TransformType> transforms;
    for (const Coder& coder : Coder::all())
        for (const LiftingScheme& lifting : liftingSchemes)
            if (coder.isFloatingPoint == floatingPoint && (lifting.order == 0 || lifting.hasUpdate == smooth))
                transforms.push_back(static_cast<TransformType>(coder.base + lifting.code));
    return transforms;
}

// Whether the coder can code the coefficients of all samples in this range. Third-order predictions can
// exceed the range by an eighth; smoothing enlarges the range of the low bands.
bool holdsRange(TransformType transform, const ChannelSurvey::Range& range)
{
    const double low = static_cast<double>(range.low);
    const double high = static_cast<double>(range.high);
    const double largest = std::max({high - low, std::fabs(low), std::fabs(high)});
    const double growth = TransformUtils::hasUpdate(transform) ? 4 : 1.25;
    const int bits = TransformUtils::getCoder(transform).magnitudeBits;
    return bits >= 64 || largest * growth < std::ldexp(1.0, bits);
}

// Whether floating-point lifting of samples on a grid is exact: the significand must have bits for halves and
// sixteenths of the grid's scale and for the growth per level.
bool liftsExactly(TransformType transform, DataType type, const std::vector<FloatGrid>& grids,
                  std::size_t levels)
{
    if (!TransformUtils::isWavelet(transform))
        return true;
    const int significand = type == FLOAT32 ? 24 : 53;
    const int each = TransformUtils::getHeadroom(transform) + 1;
    const int added = TransformUtils::hasUpdate(transform) ? 2 * each * static_cast<int>(levels) : each;
    return std::any_of(grids.begin(), grids.end(), [&](const FloatGrid& grid) {
        int exponent = 0;
        return grid.offset == 0 && std::frexp(grid.scale, &exponent) == 0.5 &&
               WaveletChannelInfo::countBits(grid.low, grid.high) + added <= significand;
    });
}

KernelPlan makePart(const ChannelInfo& channel, ChannelPart part, const ChannelSurvey::Range& range)
{
    KernelPlan plan;
    plan.name = std::string(WaveletChannelInfo::getPrefix(part)) + channel.getName();
    plan.dataType = channel.getDataType();
    plan.bits = WaveletChannelInfo::countBits(range.low, range.high);
    return plan;
}

// The range of the integers that an integer transform codes: the samples of an integer channel, or the
// integers of a grid.
std::optional<ChannelSurvey::Range> getIntegers(const ChannelInfo& channel, const ChannelSurvey& survey)
{
    if (!DataTypeUtils::isFloat(channel.getDataType()))
        return survey.getRange();
    if (survey.getGrids().empty())
        return std::nullopt;
    return ChannelSurvey::Range{survey.getGrids()[0].low, survey.getGrids()[0].high};
}

std::vector<TransformType> integerTransforms(const ChannelSurvey::Range& range, const ChannelChoice& choice)
{
    if (choice.transform && holdsRange(*choice.transform, range))
        return {*choice.transform};
    std::vector<TransformType> transforms = listTransforms(false, choice.smooth);
    transforms.erase(std::remove_if(transforms.begin(), transforms.end(),
                                    [&](TransformType code) { return !holdsRange(code, range); }),
                     transforms.end());
    return transforms;
}

} // namespace

struct PlanChooser::Candidate
{
    ChannelPlan plan;
    std::vector<std::vector<TransformType>> transforms; // to try for each part of the plan

    void add(const KernelPlan& part, std::vector<TransformType> forPart)
    {
        plan.push_back(part);
        transforms.push_back(std::move(forPart));
    }
};

struct PlanChooser::Trial
{
    KernelPlan plan;
    double cost = 0; // weighted bytes

    // Trials of all these transforms.
    static void add(std::vector<Trial>& trials, const KernelPlan& plan,
                    const std::vector<TransformType>& transforms)
    {
        for (const TransformType transform : transforms) {
            trials.push_back({plan, 0});
            trials.back().plan.transform = transform;
        }
    }
};

std::int64_t PlanChooser::measure(const KernelPlan& plan, std::size_t channelIndex, std::size_t run) const
{
    SpillFile file;
    ChannelEncoder encoder(plan, channelIndex, m_format, file);
    const auto encode = [&encoder] {
        for (std::size_t i = 0; i < encoder.numPending(); ++i)
            encoder.encodePending(i);
        encoder.commit();
    };
    encoder.put(m_runs[run]->points, m_runs[run]->count);
    encode();
    encoder.finish();
    encode();
    return encoder.getSize();
}

double PlanChooser::getWeight(TransformType transform) const
{
    const Coder& coder = TransformUtils::getCoder(transform);
    return m_format.prefer == Preference::Size    ? 1
           : m_format.prefer == Preference::Speed ? coder.speedWeight
                                                  : coder.sizeWeight;
}

void PlanChooser::chooseOthers(Trial& best, const std::vector<Trial>& trials,
                               const ChannelChoice& choice) const
{
    KernelPlan& plan = best.plan;
    plan.others.clear();
    if (m_format.prefer != Preference::Size)
        return;
    const bool isReal = TransformUtils::isFloatingPoint(plan.transform);
    for (const Trial& trial : trials)
        for (const std::uint32_t size : triedSubblocks)
            if (TransformUtils::isFloatingPoint(trial.plan.transform) == isReal &&
                trial.cost <= promising * best.cost && size == choice.subblockSize.value_or(size) &&
                (trial.plan.transform != plan.transform || size != plan.subblockSize))
                plan.others.push_back({trial.plan.transform, size});
}

PlanChooser::Trial PlanChooser::chooseTransform(std::vector<Trial> trials, std::size_t channelIndex,
                                                const ChannelChoice& choice, bool needsCost) const
{
    for (Trial& trial : trials)
        trial.plan.subblockSize = choice.subblockSize.value_or(defaultSubblock);
    const auto cheaper = [](const Trial& a, const Trial& b) { return a.cost < b.cost; };
    for (std::size_t run = 0; run < m_runs.size() && (trials.size() > 1 || needsCost); ++run) {
        nestedParallelLoop(trials.size(), [&](std::size_t i) {
            Trial& trial = trials[i];
            trial.cost +=
                static_cast<double>(measure(trial.plan, channelIndex, run)) * getWeight(trial.plan.transform);
        });
        const double best = std::min_element(trials.begin(), trials.end(), cheaper)->cost;
        trials.erase(std::remove_if(trials.begin(), trials.end(),
                                    [best](const Trial& trial) { return trial.cost > hopeless * best; }),
                     trials.end());
    }
    Trial best = *std::min_element(trials.begin(), trials.end(), cheaper);
    chooseOthers(best, trials, choice);
    return best;
}

void PlanChooser::chooseSubblock(KernelPlan& plan, std::size_t channelIndex,
                                 const ChannelChoice& choice) const
{
    if (choice.subblockSize || m_format.prefer == Preference::Size)
        return;
    double sizes[std::size(subblockSizes)] = {};
    const std::size_t runs = std::min(m_runs.size(), subblockRuns);
    nestedParallelLoop(std::size(subblockSizes), [&](std::size_t i) {
        KernelPlan tried = plan;
        tried.subblockSize = subblockSizes[i];
        for (std::size_t run = 0; run < runs; ++run)
            sizes[i] += static_cast<double>(measure(tried, channelIndex, run));
    });
    const double best = *std::min_element(std::begin(sizes), std::end(sizes));
    const double tolerance = m_format.prefer == Preference::Speed ? 1 : smallerSubblock;
    const auto* chosen = std::find_if(std::begin(sizes), std::end(sizes),
                                      [&](double size) { return size <= tolerance * best; });
    plan.subblockSize = runs == 0 ? defaultSubblock : subblockSizes[chosen - sizes];
}

std::vector<PlanChooser::Candidate> PlanChooser::makeCandidates(const ChannelInfo& channel,
                                                                const ChannelSurvey& survey,
                                                                const ChannelChoice& choice) const
{
    const bool isReal = DataTypeUtils::isFloat(channel.getDataType());
    const bool wantsReal = choice.transform && TransformUtils::isFloatingPoint(*choice.transform);
    const auto integers = getIntegers(channel, survey);
    std::vector<Candidate> candidates;
    if (integers && !wantsReal) {
        KernelPlan part = makePart(channel, ChannelPart::Whole, *integers);
        if (isReal) {
            const double offset = survey.getGrids()[0].offset;
            part.offset = std::isnan(offset) ? 0 : offset; // not yet known if there are no points
            part.scale = survey.getGrids()[0].scale;
        }
        candidates.emplace_back().add(part, integerTransforms(*integers, choice));
    } else if (!wantsReal && !m_runs.empty()) {
        const bool narrow = channel.getDataType() == FLOAT32;
        const ChannelSurvey::Range fractions{0, (std::int64_t{1} << (narrow ? 23 : 52)) - 1};
        const auto addPart = [&](ChannelPart part, const ChannelSurvey::Range& range) {
            candidates.back().add(makePart(channel, part, range), integerTransforms(range, choice));
        };
        candidates.emplace_back();
        addPart(narrow ? ChannelPart::Fraction32 : ChannelPart::Fraction64, fractions);
        addPart(ChannelPart::Exponent, survey.getExponents());
        addPart(ChannelPart::Sign, survey.getSigns());
    }
    if (wantsReal)
        candidates.emplace_back().add(makePart(channel, ChannelPart::Whole, {}), {*choice.transform});
    else if (isReal && (candidates.empty() || (!choice.transform && !(integers && survey.isCoordinate())))) {
        std::vector<TransformType> transforms;
        for (const TransformType code : listTransforms(true, choice.smooth))
            if (liftsExactly(code, channel.getDataType(), survey.getGrids(), m_format.numLevels))
                transforms.push_back(code);
        candidates.emplace_back().add(makePart(channel, ChannelPart::Whole, {}), std::move(transforms));
    }
    return candidates;
}

bool PlanChooser::supports(TransformType transform, const ChannelInfo& channel,
                           const ChannelSurvey& survey) const
{
    if (TransformUtils::isFloatingPoint(transform))
        return DataTypeUtils::isFloat(channel.getDataType()) &&
               liftsExactly(transform, channel.getDataType(), survey.getGrids(), m_format.numLevels);
    const auto integers = getIntegers(channel, survey);
    return !integers || holdsRange(transform, *integers);
}

// The cheapest candidate, by the costs of all of its parts.
ChannelPlan PlanChooser::chooseCandidate(const std::vector<Candidate>& candidates, std::size_t channelIndex,
                                         const ChannelChoice& choice) const
{
    ChannelPlan best;
    double leastCost = std::numeric_limits<double>::infinity();
    for (const Candidate& candidate : candidates) {
        ChannelPlan plan;
        double cost = 0;
        for (std::size_t part = 0; part < candidate.plan.size(); ++part) {
            std::vector<Trial> trials;
            Trial::add(trials, candidate.plan[part], candidate.transforms[part]);
            Trial chosen = chooseTransform(std::move(trials), channelIndex, choice, candidates.size() > 1);
            plan.push_back(std::move(chosen.plan));
            cost += chosen.cost;
        }
        if (cost < leastCost) {
            leastCost = cost;
            best = std::move(plan);
        }
    }
    return best;
}

ChannelPlan PlanChooser::choose(const ChannelInfo& channel, std::size_t channelIndex,
                                const ChannelSurvey& survey, ChannelChoice choice) const
{
    if (choice.transform && !supports(*choice.transform, channel, survey)) {
        if (choice.isRequired)
            QM_THROW(ErrorCode::InvalidArgument, "transform %d does not suit channel '%s'",
                     static_cast<int>(*choice.transform), channel.getName());
        choice.transform.reset();
    }
    const std::vector<Candidate> candidates = makeCandidates(channel, survey, choice);
    const bool isDivided = std::any_of(candidates.begin(), candidates.end(),
                                       [](const Candidate& candidate) { return candidate.plan.size() > 1; });
    ChannelPlan best;
    if (isDivided) {
        best = chooseCandidate(candidates, channelIndex, choice);
    } else {
        std::vector<Trial> trials;
        for (const Candidate& candidate : candidates)
            Trial::add(trials, candidate.plan.front(), candidate.transforms.front());
        best = {chooseTransform(std::move(trials), channelIndex, choice, false).plan};
    }
    for (KernelPlan& part : best)
        chooseSubblock(part, channelIndex, choice);
    return best;
}

} // namespace Quillmoran
