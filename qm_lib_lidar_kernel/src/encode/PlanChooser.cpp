#include "encode/PlanChooser.h"

#include "platform/Base.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Quillmoran {

namespace {

constexpr TransformType integerCodes[] = {10, 11, 13, 90, 91, 93};
constexpr TransformType smoothIntegerCodes[] = {10, 1, 3, 90, 81, 83};
constexpr TransformType realCodes[] = {70, 71, 73};
constexpr TransformType smoothRealCodes[] = {70, 61, 63};

// MQ-coded channels must be smaller by this to be chosen: they decode at a half to a quarter of the others'
// pace.
constexpr double slowDecoding = 1.06;
// Ways that are larger than the best by this after a run of points are not tried on the others.
constexpr double hopeless = 1.1;
// A smaller subblock is chosen when it costs no more than this.
constexpr double smallerSubblock = 1.01;
constexpr std::uint32_t subblockSizes[] = {1024, 2048, 4096};
constexpr std::size_t subblockRuns = 2;

constexpr int arithmeticBits = 15; // of a coefficient that the arithmetic coder can hold

bool isArithmetic(TransformType transform)
{
    return TransformUtils::getCoder(transform) == TransformUtils::Coder::Arithmetic;
}

// Whether no coefficient of samples in this range can exceed the arithmetic coder. The third order predicts
// up to an eighth of the range beyond it; smoothing makes low bands grow.
bool suitsArithmetic(TransformType transform, const ChannelSurvey::Range& range)
{
    const double low = static_cast<double>(range.low);
    const double high = static_cast<double>(range.high);
    const double largest = std::max({high - low, std::fabs(low), std::fabs(high)});
    const double growth = TransformUtils::hasUpdate(transform) ? 4 : 1.25;
    return largest * growth < 1 << arithmeticBits;
}

// Whether lifting the samples of a grid in floating point rounds nowhere: halves and sixteenths of the grid's
// steps and what levels add to them must fit the significand.
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

KernelPlan makePart(const ChannelInfo& channel, const char* prefix, ConversionAction action,
                    const ChannelSurvey::Range& range)
{
    KernelPlan part;
    part.name = std::string(prefix) + channel.getName();
    part.dataType = channel.getDataType();
    part.action = action;
    part.bits = WaveletChannelInfo::countBits(range.low, range.high);
    return part;
}

// The three parts of a floating-point channel, with the ranges of their kernel samples.
struct Split
{
    ChannelPlan parts;
    ChannelSurvey::Range ranges[3];
};

Split makeSplit(const ChannelInfo& channel, const ChannelSurvey& survey)
{
    const bool narrow = channel.getDataType() == FLOAT32;
    Split split;
    split.ranges[0] = {0, (std::int64_t{1} << (narrow ? 23 : 52)) - 1};
    split.ranges[1] = survey.getExponents();
    split.ranges[2] = survey.getSigns();
    const char* fraction =
        narrow ? WaveletChannelInfo::fraction32Prefix : WaveletChannelInfo::fraction64Prefix;
    split.parts = {
        makePart(channel, fraction, CONVERT_EXTRACT_FRACTION, split.ranges[0]),
        makePart(channel, WaveletChannelInfo::exponentPrefix, CONVERT_EXTRACT_EXPONENT, split.ranges[1]),
        makePart(channel, WaveletChannelInfo::signPrefix, CONVERT_EXTRACT_SIGN, split.ranges[2])};
    return split;
}

std::vector<TransformType> integerCandidates(const ChannelSurvey::Range& range, const ChannelChoice& choice)
{
    std::vector<TransformType> candidates;
    if (choice.transform) {
        candidates.push_back(*choice.transform);
        return candidates;
    }
    for (const TransformType code : choice.smooth ? smoothIntegerCodes : integerCodes)
        if (!isArithmetic(code) || suitsArithmetic(code, range))
            candidates.push_back(code);
    return candidates;
}

void checkSuits(const ChannelInfo& channel, TransformType transform, bool suits)
{
    if (!suits)
        QM_THROW(40007, "transform %d does not suit channel '%s'", static_cast<int>(transform),
                 channel.getName());
}

} // namespace

struct PlanChooser::Trial
{
    TransformType transform = 0;
    double cost = 0; // bytes, weighted by how they decode
};

std::int64_t PlanChooser::measure(const KernelPlan& plan, int channelIndex, std::size_t run) const
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

PlanChooser::Trial PlanChooser::chooseTransform(KernelPlan& plan, int channelIndex,
                                                const std::vector<TransformType>& candidates,
                                                const ChannelChoice& choice) const
{
    plan.subblockSize = choice.subblockSize.value_or(defaultSubblock);
    std::vector<Trial> trials;
    for (const TransformType candidate : candidates)
        trials.push_back({candidate, 0});
    const auto cheaper = [](const Trial& a, const Trial& b) { return a.cost < b.cost; };
    for (std::size_t run = 0; run < m_runs.size(); ++run) {
        for (Trial& trial : trials) {
            plan.transform = trial.transform;
            const bool isSlow = TransformUtils::getCoder(trial.transform) == TransformUtils::Coder::MQ;
            trial.cost += static_cast<double>(measure(plan, channelIndex, run)) * (isSlow ? slowDecoding : 1);
        }
        const double best = std::min_element(trials.begin(), trials.end(), cheaper)->cost;
        trials.erase(std::remove_if(trials.begin(), trials.end(),
                                    [best](const Trial& trial) { return trial.cost > hopeless * best; }),
                     trials.end());
    }
    const Trial best = *std::min_element(trials.begin(), trials.end(), cheaper);
    plan.transform = best.transform;
    return best;
}

void PlanChooser::chooseSubblock(KernelPlan& plan, int channelIndex, const ChannelChoice& choice) const
{
    if (choice.subblockSize)
        return;
    double sizes[std::size(subblockSizes)] = {};
    const std::size_t runs = std::min(m_runs.size(), subblockRuns);
    for (std::size_t i = 0; i < std::size(subblockSizes); ++i) {
        plan.subblockSize = subblockSizes[i];
        for (std::size_t run = 0; run < runs; ++run)
            sizes[i] += static_cast<double>(measure(plan, channelIndex, run));
    }
    const double best = *std::min_element(std::begin(sizes), std::end(sizes));
    const auto* chosen = std::find_if(std::begin(sizes), std::end(sizes),
                                      [best](double size) { return size <= smallerSubblock * best; });
    plan.subblockSize = runs == 0 ? defaultSubblock : subblockSizes[chosen - sizes];
}

ChannelPlan PlanChooser::choose(const ChannelInfo& channel, int channelIndex, const ChannelSurvey& survey,
                                const ChannelChoice& choice, bool isCoordinate) const
{
    std::vector<ChannelPlan> plans; // the ways to hold the channel
    std::vector<double> costs;
    const auto add = [&](ChannelPlan plan, const std::vector<std::vector<TransformType>>& candidates) {
        double cost = 0;
        for (std::size_t part = 0; part < plan.size(); ++part)
            cost += chooseTransform(plan[part], channelIndex, candidates[part], choice).cost;
        plans.push_back(std::move(plan));
        costs.push_back(cost);
    };
    const std::optional<TransformType>& given = choice.transform;
    const bool wantsReal = given && TransformUtils::isFloatingPoint(*given);

    if (!DataTypeUtils::isFloat(channel.getDataType())) {
        if (given)
            checkSuits(channel, *given,
                       !wantsReal && (!isArithmetic(*given) || suitsArithmetic(*given, survey.getRange())));
        add({makePart(channel, "", CONVERT_PLAIN, survey.getRange())},
            {integerCandidates(survey.getRange(), choice)});
    } else {
        const std::vector<FloatGrid>& grids = survey.getGrids();
        if (!grids.empty() && !wantsReal) {
            const ChannelSurvey::Range range{grids[0].low, grids[0].high};
            if (given)
                checkSuits(channel, *given, !isArithmetic(*given) || suitsArithmetic(*given, range));
            KernelPlan part = makePart(channel, "", CONVERT_PLAIN, range);
            part.offset = grids[0].offset;
            part.scale = grids[0].scale;
            add({part}, {integerCandidates(range, choice)});
        } else if (!wantsReal && m_runs.size() != 0) {
            const Split split = makeSplit(channel, survey);
            // The fraction fits no arithmetic coder; a given code is then for the other parts.
            ChannelChoice fractionChoice = choice;
            if (given && isArithmetic(*given))
                fractionChoice.transform.reset();
            add(split.parts,
                {integerCandidates(split.ranges[0], fractionChoice),
                 integerCandidates(split.ranges[1], choice), integerCandidates(split.ranges[2], choice)});
        }
        const bool isKept = isCoordinate && !grids.empty();
        if (wantsReal || (!given && !isKept) || plans.empty()) {
            std::vector<TransformType> candidates;
            if (wantsReal)
                candidates.push_back(*given);
            else
                for (const TransformType code : choice.smooth ? smoothRealCodes : realCodes)
                    candidates.push_back(code);
            candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                            [&](TransformType code) {
                                                return !liftsExactly(code, channel.getDataType(), grids,
                                                                     m_format.numLevels);
                                            }),
                             candidates.end());
            if (wantsReal)
                checkSuits(channel, *given, !candidates.empty());
            KernelPlan part = makePart(channel, "", CONVERT_PLAIN, {});
            add({part}, {candidates});
        }
    }
    const auto best = static_cast<std::size_t>(std::min_element(costs.begin(), costs.end()) - costs.begin());
    for (KernelPlan& part : plans[best])
        chooseSubblock(part, channelIndex, choice);
    return plans[best];
}

} // namespace Quillmoran
