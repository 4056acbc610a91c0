#include "encode/planning/SourceSample.h"

#include "common/coders/Coder.h"
#include "common/container/WaveletChannelInfo.h"
#include "model/ChannelNames.h"
#include "remote/RemoteError.h"
#include <vxunpack/Base.h>
#include <vxunpack/PointSource.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Quillmoran::SourceSample {

namespace {

// Fewer points are surveyed completely: samples would be a large part of them.
constexpr std::int64_t minPoints = 131072;
constexpr std::int64_t pointsPerRun = 131072; // points of the source per run
constexpr std::int64_t minRuns = 4;

// Reads a run into `points`, which has `first` points. Returns the number of points of the run.
std::size_t readRun(PointIterator& iterator, const PointInfo& layout, PointData& points, std::size_t first)
{
    PointData block;
    block.init(layout, SourceSurvey::runPoints);
    std::size_t filled = 0;
    while (filled < SourceSurvey::runPoints) {
        block.resize(SourceSurvey::runPoints - filled);
        const std::size_t count = iterator.getNextPoints(block);
        if (count == 0)
            break;
        PointData::copy(points, first + filled, block, 0, count);
        filled += count;
    }
    return filled;
}

// Reads runs that are spread over the source, one after the other, into `points`. Returns the number of points
// of each; none if the source cannot be sampled.
std::vector<std::size_t> readRuns(const PointSource& source, const PointInfo& layout, double numPoints,
                                  std::size_t numRuns, PointData& points,
                                  const std::function<void()>& beforeRun)
{
    // The first run is at the start, where the grids of times begin; the last one is at the end.
    const double last = 1 - static_cast<double>(SourceSurvey::runPoints) / numPoints;
    std::vector<std::size_t> runs;
    std::size_t total = 0;
    for (std::size_t i = 0; i < numRuns; ++i) {
        const Scoped<PointIterator> iterator(source.createSampleIterator(
            last * static_cast<double>(i) / static_cast<double>(numRuns - 1), layout));
        if (!iterator)
            return {};
        beforeRun();
        if (i == 0)
            points.init(layout, numRuns * SourceSurvey::runPoints);
        const std::size_t count = readRun(*iterator, layout, points, total);
        if (count != 0)
            runs.push_back(count);
        total += count;
    }
    return runs;
}

void addMargins(SourceSurvey& survey, const PointSource& source, const PointInfo& layout)
{
    // A source that does not know the number of its points would read all of them for their bounds.
    const bool isKnown = source.getNumPoints() != PointSource::unknownNumPoints;
    const Bounds bounds = isKnown ? source.getBounds() : Bounds::Huge();
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        const Bounds::Range extent = channel.isNamed(ChannelNames::x)   ? bounds.x
                                     : channel.isNamed(ChannelNames::y) ? bounds.y
                                     : channel.isNamed(ChannelNames::z) ? bounds.z
                                                                        : Bounds::Range();
        survey.getChannel(i).addMargin(channel.getDataType(), extent);
    }
}

} // namespace

std::unique_ptr<SourceSurvey> read(const PointSource& source, const PointInfo& layout,
                                   const SourceSurvey::CoordinateGrid& grid,
                                   const std::function<void()>& beforeRun)
{
    const double estimate = source.estimatePoints(Bounds::Huge(), 1.0);
    constexpr double maxPoints = 9e18;
    if (!(estimate > static_cast<double>(minPoints)) || estimate > maxPoints)
        return nullptr;
    const auto numPoints = static_cast<std::int64_t>(estimate);
    const auto numRuns = std::min(static_cast<std::size_t>(std::max(numPoints / pointsPerRun, minRuns)),
                                  SourceSurvey::getMaxRuns(layout));
    if (numRuns < static_cast<std::size_t>(minRuns))
        return nullptr;
    std::vector<std::size_t> runs;
    PointData points;
    try {
        runs = readRuns(source, layout, estimate, numRuns, points, beforeRun);
    } catch (const Error& error) {
        // Reading all points in their order reports it.
        if (isRemoteError(error))
            throw;
    }
    if (runs.empty())
        return nullptr;
    auto survey = std::make_unique<SourceSurvey>(layout, grid);
    survey->addSamples(points, runs, numPoints);
    addMargins(*survey, source, layout);
    return survey;
}

bool generalize(ChannelPlan& plan)
{
    for (KernelPlan& part : plan) {
        if (TransformUtils::hasUpdate(part.transform))
            return false;
        // A coder for all integers of the type codes them all. The other coder refuses most of those that the
        // samples do not have, so that its kernel does not have to be wider than theirs.
        const int bits = static_cast<int>(8 * DataTypeUtils::getSize(part.dataType));
        constexpr int widest = 16; // wider integers often have a small part of their range
        if (!DataTypeUtils::isFloat(part.dataType) && bits <= widest &&
            TransformUtils::getCoder(part.transform).magnitudeBits > widest)
            part.bits = bits;
    }
    return true;
}

bool isSuitable(const ChannelPlan& plan, const ChannelSurvey& survey, bool isExact)
{
    for (const KernelPlan& part : plan) {
        WaveletChannelInfo record;
        const auto kernelSize = [&](int bits) {
            record.init(part.name.c_str(), part.dataType, bits, part.transform, part.subblockSize,
                        part.offset, part.scale);
            return DataTypeUtils::getSize(record.getKernelDataType());
        };
        const std::size_t planned = kernelSize(part.bits);
        if (TransformUtils::isFloatingPoint(part.transform)) {
            if (!isExact)
                return false;
            continue;
        }
        ChannelSurvey::Range range;
        switch (record.getPart()) {
        case ChannelPart::Whole:
            range = survey.getRange();
            if (record.isQuantized()) {
                if (!survey.getExpected())
                    return false;
                range = {survey.getExpected()->low, survey.getExpected()->high};
            }
            break;
        case ChannelPart::Exponent:
            range = survey.getExponents();
            break;
        case ChannelPart::Sign:
            range = survey.getSigns();
            break;
        default:
            continue; // fractions have all their bits
        }
        if (kernelSize(WaveletChannelInfo::countBits(range.low, range.high)) > planned)
            return false;
    }
    return true;
}

} // namespace Quillmoran::SourceSample
