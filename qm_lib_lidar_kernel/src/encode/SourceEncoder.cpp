#include "encode/SourceEncoder.h"

#include "encode/planning/SourceSample.h"
#include "platform/ParallelLoop.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <optional>

namespace Quillmoran {

namespace {

constexpr std::size_t blockPoints = 65536;
constexpr std::size_t minBlockPoints = 64; // for points with very many channels
constexpr std::size_t maxBlockBytes = 16 << 20;
// Minimum of the coarsest level: previews need no fewer points, and each chunk costs bytes.
constexpr std::int64_t coarsestPoints = 512;
constexpr std::uint32_t maxLevels = 24;
constexpr std::int64_t maxIndexEntries = 65536;
constexpr std::int64_t smallFileEntries = 16; // minimum for a small file
constexpr std::int64_t fewestEntries = 4;     // likewise, if the smallest file is preferred
constexpr std::uint32_t smallestEntry = 64;   // points
constexpr const char* surveying = "surveying points";
constexpr const char* writing = "writing VX7 file";

// The work on a point, relative to reading it from the source.
constexpr double surveyWork = 0.5;
constexpr double encodeWork = 2;

std::string describe(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    }
}

} // namespace

SourceEncoder::SourceEncoder(PointSource& source, const Query& query,
                             const SourceSurvey::CoordinateGrid& grid, const EncodeOptions& options,
                             ProgressDelegate* delegate)
    : m_source(source),
      m_query(query),
      m_grid(grid),
      m_options(options),
      m_delegate(delegate),
      m_estimate(source.estimatePoints(query.bounds, query.fraction))
{}

void SourceEncoder::report(double work, const char* activity) const
{
    if (!m_delegate)
        return;
    if (m_delegate->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "VX7 Write operation cancelled.");
    if (work > 0)
        m_delegate->updateCompleted(work, activity);
}

double SourceEncoder::getReadingWork() const
{
    return m_source.getTotalWork(m_query.bounds, m_query.fraction);
}

void SourceEncoder::encode()
{
    planFromSamples();
    const bool readsOnce = m_encoder || m_estimate <= static_cast<double>(blockPoints);
    m_total = (readsOnce ? 1 : 2) * getReadingWork() + m_estimate * (surveyWork + encodeWork);
    if (m_delegate)
        m_delegate->setTotal(m_total);

    BlockReader reader = openReader();
    SourceSurvey survey(m_query.layout, m_grid);
    readFirst(reader, survey);
    if (!m_encoder)
        encodeAgain(reader, survey);
    noteDecimals(survey);
    if (m_translation.isStarted())
        m_translation.wait();
}

// Samples are those of all points. A query for a part of them has two passes, and so have the smallest files.
void SourceEncoder::planFromSamples()
{
    if (m_query.bounds != Bounds::Huge() || m_query.fraction < 1 || m_options.prefer == Preference::Size)
        return;
    const auto sample = SourceSample::read(m_source, m_query.layout, m_grid, [this] {
        report(0, surveying);
        if (!m_translation.isStarted())
            m_translation.start([this] { m_source.getWKT(); });
    });
    if (!sample)
        return;
    try {
        choosePlans(*sample);
    } catch (const Error& error) {
        // A required transform that does not suit the margins of the samples can suit the points.
        if (error.code() != ErrorCode::InvalidArgument)
            throw;
        return;
    }
    if (!std::all_of(m_plans.begin(), m_plans.end(), SourceSample::generalize))
        return;
    for (std::size_t i = 0; i < m_plans.size(); ++i) {
        const std::vector<FloatGrid>& grids = sample->getChannel(i).getGrids();
        m_expected.push_back(m_plans[i].front().scale != 0 ? grids[0].withoutRange() : FloatGrid());
    }
    startEncoder(sample->getNumPoints());
}

// Surveys the points, and encodes them as long as the survey does not contradict the plans.
void SourceEncoder::readFirst(BlockReader& reader, SourceSurvey& survey)
{
    for (std::size_t i = 0; i < m_expected.size(); ++i)
        if (m_expected[i].scale != 0)
            survey.getChannel(i).expect(m_expected[i]);
    if (m_encoder)
        surveyAndEncode(reader, survey);
    if (m_encoder && m_restart.empty())
        finishFirst(survey);
    if (!m_restart.empty())
        m_encoder.reset();
    if (!m_encoder)
        surveyOnly(reader, survey);
}

void SourceEncoder::surveyAndEncode(BlockReader& reader, SourceSurvey& survey)
{
    const std::size_t numChannels = m_plans.size();
    std::vector<Trial> trials(reader.getNumSlots());
    std::size_t numBlocks = 0;
    std::atomic<std::size_t> end = SIZE_MAX; // no block after this one needs to be encoded
    const auto begin = [&](const BlockReader::Block& block) {
        trials[block.slot] = {numBlocks++, std::vector<char>(numChannels),
                              std::vector<std::exception_ptr>(numChannels)};
        survey.begin(block.points, block.count);
    };
    const auto work = [&](const BlockReader::Block& block, std::size_t lane) {
        if (lane == numChannels)
            m_encoder->addToIndex(block.points, block.count);
        else
            tryChannel(lane, block, survey, trials[block.slot], end);
    };
    reader.forEach(numChannels + 1, begin, work, [&](const BlockReader::Block& block) {
        const auto count = static_cast<double>(block.count);
        if (!m_restart.empty()) { // an earlier block
            report(count * surveyWork, surveying);
            return false;
        }
        m_numEncoded += static_cast<std::int64_t>(block.count);
        m_restart = describeContradiction(trials[block.slot]);
        if (!m_restart.empty())
            restart();
        report(count * (surveyWork + encodeWork), writing);
        return m_restart.empty();
    });
}

// The survey goes on after a contradiction. All channels of a block are encoded if none before it was
// contradicted, so that the reason of a restart does not depend on the threads.
void SourceEncoder::tryChannel(std::size_t channel, const BlockReader::Block& block, SourceSurvey& survey,
                               Trial& trial, std::atomic<std::size_t>& end)
{
    survey.survey(channel, block.points, block.count);
    const ChannelSurvey& surveyed = survey.getChannel(channel);
    const std::vector<const PlanChooser::Run*> noRuns;
    const bool isExact =
        PlanChooser(noRuns, getFormat())
            .supports(m_plans[channel].front().transform, m_query.layout.getChannel(channel), surveyed);
    trial.suits[channel] = SourceSample::isSuitable(m_plans[channel], surveyed, isExact);
    if (trial.suits[channel] && trial.number <= end)
        trial.refusals[channel] = m_encoder->encode(channel, block.points, block.count);
    if (trial.suits[channel] && !trial.refusals[channel])
        return;
    std::size_t earliest = end;
    while (trial.number < earliest && !end.compare_exchange_weak(earliest, trial.number)) {
    }
}

std::string SourceEncoder::describeContradiction(const Trial& trial) const
{
    const auto unsuitable = std::find(trial.suits.begin(), trial.suits.end(), 0);
    if (unsuitable != trial.suits.end()) {
        const auto channel = static_cast<std::size_t>(unsuitable - trial.suits.begin());
        return "channel '" + std::string(m_query.layout.getChannel(channel).getName()) +
               "' has other values than the samples";
    }
    const auto refusal = std::find_if(trial.refusals.begin(), trial.refusals.end(),
                                      [](const std::exception_ptr& each) { return each != nullptr; });
    return refusal == trial.refusals.end() ? std::string() : describe(*refusal);
}

void SourceEncoder::finishFirst(const SourceSurvey& survey)
{
    if (const std::exception_ptr refusal = m_encoder->finish())
        m_restart = describe(refusal);
    else if (!suitsCount(survey.getNumPoints()))
        m_restart = "their number differs from the estimate";
    else if (!m_encoder->isReadable())
        m_restart = "their range differs from that of the samples";
    if (!m_restart.empty())
        restart();
}

void SourceEncoder::surveyOnly(BlockReader& reader, SourceSurvey& survey)
{
    reader.forEach(
        m_query.layout.getNumChannels(),
        [&](const BlockReader::Block& block) { survey.begin(block.points, block.count); },
        [&](const BlockReader::Block& block, std::size_t lane) {
            survey.survey(lane, block.points, block.count);
        },
        [&](const BlockReader::Block& block) {
            report(static_cast<double>(block.count) * surveyWork, surveying);
            return true;
        });
}

// Adds the work of a second pass.
void SourceEncoder::restart()
{
    m_total += getReadingWork() + static_cast<double>(m_numEncoded) * encodeWork;
    if (m_delegate) {
        const double completed = m_delegate->getCompleted();
        m_delegate->setTotal(m_total);
        m_delegate->updateCompleted(completed, surveying);
    }
}

// Encodes the points with plans for all of them.
void SourceEncoder::encodeAgain(BlockReader& reader, const SourceSurvey& survey)
{
    const std::int64_t numPoints = survey.getNumPoints();
    choosePlans(survey);
    startEncoder(numPoints);
    // The number of points is now known. They share the estimated work.
    const double pointWork = numPoints == 0 ? 0 : encodeWork * m_estimate / static_cast<double>(numPoints);
    std::optional<BlockReader> second;
    if (!reader.rewind())
        second.emplace(openReader());
    BlockReader& blocks = second ? *second : reader;
    const std::size_t numChannels = m_plans.size();
    blocks.forEach(
        numChannels + 1, [](const BlockReader::Block&) {},
        [&](const BlockReader::Block& block, std::size_t lane) {
            if (lane == numChannels)
                m_encoder->addToIndex(block.points, block.count);
            else if (const std::exception_ptr refusal = m_encoder->encode(lane, block.points, block.count))
                std::rethrow_exception(refusal);
        },
        [&](const BlockReader::Block& block) {
            report(static_cast<double>(block.count) * pointWork, writing);
            return true;
        });
    if (const std::exception_ptr refusal = m_encoder->finish())
        std::rethrow_exception(refusal);
    if (m_encoder->getNumPoints() != numPoints || !m_encoder->isWithinPlans() || !m_encoder->isReadable())
        QM_THROW(ErrorCode::InvalidArgument, "the source has changed while it was read");
}

BlockReader SourceEncoder::openReader() const
{
    Scoped<PointIterator> iterator(
        m_source.createIterator(m_query.bounds, m_query.fraction, m_query.layout, m_delegate));
    const std::size_t fitting =
        std::max<std::size_t>(maxBlockBytes / (m_query.layout.getPointSize() + 1), minBlockPoints);
    return BlockReader(std::move(iterator), m_query.layout, std::min(fitting, blockPoints));
}

BandFormat SourceEncoder::getFormat() const
{
    return {m_numLevels, m_options.versions.band == 1,
            m_options.versions.file < FileVersions::withSingleLengths, m_options.rawPlanes, m_options.prefer};
}

void SourceEncoder::choosePlans(const SourceSurvey& survey)
{
    m_numLevels = chooseLevels(survey.getNumPoints());
    const std::vector<const PlanChooser::Run*> runs = survey.getRuns();
    const PlanChooser chooser(runs, getFormat());
    m_plans.resize(m_query.layout.getNumChannels());
    parallelLoop(m_plans.size() + 1, [&](std::size_t job) {
        if (job == 0) {
            // Some sources have to translate their WKT, which is slow. No other thread reads the source now.
            if (!m_translation.isStarted())
                m_source.getWKT();
            return;
        }
        const std::size_t i = job - 1;
        const ChannelInfo& channel = m_query.layout.getChannel(i);
        m_plans[i] = chooser.choose(channel, i, survey.getChannel(i), getChoice(channel));
    });
}

void SourceEncoder::startEncoder(std::int64_t numPoints)
{
    m_pointsPerEntry = choosePointsPerEntry(numPoints);
    m_encoder = std::make_unique<PointEncoder>(m_plans, getFormat(), m_pointsPerEntry);
}

ChannelChoice SourceEncoder::getChoice(const ChannelInfo& channel) const
{
    ChannelChoice choice = m_options.all;
    const auto found = m_options.byChannel.find(channel.getName());
    if (found == m_options.byChannel.end())
        return choice;
    const ChannelChoice& own = found->second;
    if (own.transform) {
        choice.transform = own.transform;
        choice.isRequired = true;
    }
    choice.smooth |= own.smooth;
    if (own.subblockSize)
        choice.subblockSize = own.subblockSize;
    return choice;
}

std::uint32_t SourceEncoder::chooseLevels(std::int64_t numPoints) const
{
    if (m_options.numLevels)
        return *m_options.numLevels;
    std::uint32_t levels = 1;
    while (levels < maxLevels && numPoints >> levels >= coarsestPoints)
        ++levels;
    return levels;
}

// Readers join ranges of points with a gap of at most the largest subblock, so boxes with fewer points are of
// little use.
std::uint32_t SourceEncoder::choosePointsPerEntry(std::int64_t numPoints) const
{
    if (m_options.pointsPerEntry)
        return *m_options.pointsPerEntry;
    std::uint32_t largest = smallestEntry;
    for (const ChannelPlan& plan : m_plans)
        for (const KernelPlan& part : plan)
            largest = std::max(largest, part.subblockSize);
    std::int64_t points = largest;
    const std::int64_t fewest = m_options.prefer == Preference::Size ? fewestEntries : smallFileEntries;
    while (points > smallestEntry && numPoints / points < fewest)
        points /= 2;
    while (numPoints / points >= maxIndexEntries)
        points *= 2;
    return static_cast<std::uint32_t>(std::min<std::int64_t>(points, INT32_MAX));
}

// An estimate of the number of points can be wrong by a factor of two.
bool SourceEncoder::suitsCount(std::int64_t numPoints) const
{
    const std::int64_t levels = chooseLevels(numPoints);
    const std::int64_t points = choosePointsPerEntry(numPoints);
    return std::abs(levels - m_numLevels) <= 1 && m_pointsPerEntry <= 2 * points &&
           points <= 2 * std::int64_t{m_pointsPerEntry};
}

// Transforms that smooth are excluded: their coarse levels hold averages, which have other decimals.
void SourceEncoder::noteDecimals(const SourceSurvey& survey)
{
    for (std::size_t i = 0; i < m_plans.size(); ++i) {
        const ChannelInfo& channel = m_query.layout.getChannel(i);
        const KernelPlan& plan = m_plans[i].front();
        if (!DataTypeUtils::isFloat(channel.getDataType()) || TransformUtils::hasUpdate(plan.transform))
            continue;
        if (const int decimals = survey.getChannel(i).getHiddenDecimals(plan.scale))
            m_decimals.emplace_back(channel.getName(), decimals);
    }
}

} // namespace Quillmoran
