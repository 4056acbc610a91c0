// Encodes the points of a query, for VX7PointWriter.
//
// If the source can be sampled, the coding is planned from samples, and the points are read once: a survey of
// all points runs beside their encoding and is compared with the plan. When it contradicts the plan, the encoded
// bands are dropped, the survey continues to the last point, and a second pass encodes the points with a plan
// from the survey. Without samples there are always two passes, unless all points are in one block. Both ways
// restore every sample exactly.
#pragma once

#include "encode/BlockReader.h"
#include "encode/PointEncoder.h"
#include "encode/planning/SourceSurvey.h"
#include "platform/BackgroundTask.h"
#include <vxunpack/EncodeOptions.h>
#include <vxunpack/PointSource.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {

class SourceEncoder
{
public:
    struct Query
    {
        Bounds bounds;
        double fraction;
        PointInfo layout;
    };

    // The arguments must outlive this object; the delegate may be null. `grid` has the scale and offset of the
    // coordinates to try first.
    SourceEncoder(PointSource& source, const Query& query, const SourceSurvey::CoordinateGrid& grid,
                  const EncodeOptions& options, ProgressDelegate* delegate);

    // Called once, and before the other functions. Sets the total of the delegate's progress.
    void encode();

    const PointEncoder& getPoints() const noexcept { return *m_encoder; }
    std::uint32_t getNumLevels() const noexcept { return m_numLevels; }
    // The decimals of channels for which text output cannot derive them from the plan.
    const std::vector<std::pair<std::string, int>>& getDecimals() const noexcept { return m_decimals; }
    // Why the points were read again after they had been encoded; empty if they were not.
    const std::string& getRestart() const noexcept { return m_restart; }

private:
    // A block that is encoded while it is surveyed.
    struct Trial
    {
        std::size_t number = 0;
        std::vector<char> suits;                  // by channel: whether the plan suits the samples
        std::vector<std::exception_ptr> refusals; // by channel: the error of its coder
    };

    void planFromSamples();
    void readFirst(BlockReader& reader, SourceSurvey& survey);
    // Both note in m_restart how the points contradict the plans.
    void surveyAndEncode(BlockReader& reader, SourceSurvey& survey);
    void finishFirst(const SourceSurvey& survey);
    void tryChannel(std::size_t channel, const BlockReader::Block& block, SourceSurvey& survey, Trial& trial,
                    std::atomic<std::size_t>& end);
    void surveyOnly(BlockReader& reader, SourceSurvey& survey);
    std::string describeContradiction(const Trial& trial) const;
    void restart();
    void encodeAgain(BlockReader& reader, const SourceSurvey& survey);

    BlockReader openReader() const;
    BandFormat getFormat() const;
    void choosePlans(const SourceSurvey& survey);
    void startEncoder(std::int64_t numPoints);
    ChannelChoice getChoice(const ChannelInfo& channel) const;
    std::uint32_t chooseLevels(std::int64_t numPoints) const;
    std::uint32_t choosePointsPerEntry(std::int64_t numPoints) const;
    // Whether the plans, which may be for an estimate, also suit this number of points.
    bool suitsCount(std::int64_t numPoints) const;
    void noteDecimals(const SourceSurvey& survey);

    // The work of reading all points once.
    double getReadingWork() const;
    void report(double work, const char* activity) const;

    PointSource& m_source;
    const Query& m_query;
    const SourceSurvey::CoordinateGrid m_grid;
    const EncodeOptions& m_options;
    ProgressDelegate* m_delegate;
    double m_estimate; // points
    double m_total = 0;
    std::int64_t m_numEncoded = 0; // points whose encoding was reported

    std::vector<ChannelPlan> m_plans;  // by channel
    std::vector<FloatGrid> m_expected; // by channel: the grid of a plan from samples; scale 0: none
    std::uint32_t m_numLevels = 0;
    std::uint32_t m_pointsPerEntry = 0;
    std::unique_ptr<PointEncoder> m_encoder;             // null while there is no plan
    std::vector<std::pair<std::string, int>> m_decimals; // by channel
    std::string m_restart;
    BackgroundTask m_translation; // of the coordinate system
};

} // namespace Quillmoran
