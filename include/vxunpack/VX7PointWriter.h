// Writes compressed point clouds (".vxl"). Unless its options say otherwise it loses nothing: every sample
// comes back bit for bit and in its place, with scale, offset, coordinate system, class names and metadata.
//
// The source is read twice: the first pass (SourceSurvey) finds out what the channels hold, PlanChooser then
// settles how each is coded, the second pass (PointEncoder) codes them. Bands grow in a temporary file
// (SpillStream), since the file holds them one after the other; ChunkWriter puts them there at the end.
// Memory does not grow with the number of points: an index has at most 65,536 entries, of 150 bytes while it
// is made, unless the points of an entry are given.
#pragma once

#include "encode/planning/SourceSurvey.h"
#include <vxunpack/EncodeOptions.h>
#include <vxunpack/Export.h>
#include <vxunpack/PointWriter.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

class PointEncoder;

class QM_API VX7PointWriter final : public PointWriter
{
public:
    static VX7PointWriter* create();

    // A file is written beside the path and takes its place when it is complete. A store is written from its
    // start once all points are coded.
    void init(PointSource* source, const char* path);
    void init(PointSource* source, IO* io);
    // InvalidArgument for a value out of its range.
    void setOptions(const EncodeOptions& options);

    // The grid that is tried first for coordinates without loss; those that it does not hold are coded
    // otherwise.
    void setQuantization(const double* scale, const double* offset) override;
    const double* getScale() const override { return m_hasGrid ? m_scale : nullptr; }
    const double* getOffset() const override { return m_hasGrid ? m_offset : nullptr; }

    // Asks the delegate once per block: Cancelled "VX7 Write operation cancelled.". InvalidArgument when an option does not
    // suit a channel, a name cannot be stored, or the source's two readings differ.
    std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                       ProgressDelegate* delegate) override;
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

    // How the kernel channels of the last write() were coded, in the order of their records.
    struct ChannelSummary
    {
        std::string name; // with its prefix
        TransformType transform;
        std::uint32_t subblockSize;
        double scale; // 0 unless quantized
        double offset;
        std::int64_t size; // bytes
    };
    const std::vector<ChannelSummary>& getSummary() const noexcept { return m_summary; }

private:
    VX7PointWriter() = default;

    BlockReader openReader(const Bounds& bounds, double fraction, const PointInfo& layout,
                           ProgressDelegate* delegate) const;
    std::vector<ChannelPlan> choosePlans(const SourceSurvey& survey, const PointInfo& layout,
                                         const BandFormat& format) const;
    ChannelChoice getChoice(const ChannelInfo& channel) const;
    std::uint32_t chooseLevels(std::int64_t numPoints) const;
    std::uint32_t choosePointsPerEntry(std::int64_t numPoints, const std::vector<ChannelPlan>& plans) const;
    void addPointCount(std::int64_t numPoints);
    // Surveys and codes the points of the query; returns the coder with all bands.
    std::unique_ptr<PointEncoder> encode(const Bounds& bounds, double fraction, const PointInfo& layout,
                                         ProgressDelegate* delegate);
    // Remembers the decimals of channels that text output could not tell from their plans.
    void noteDecimals(const SourceSurvey& survey, const PointInfo& layout,
                      const std::vector<ChannelPlan>& plans);
    void addDecimals();
    void writeChunks(IO* io, const PointEncoder& encoder) const;
    void summarise(const PointEncoder& encoder);

    std::optional<std::string> m_path; // or none, then
    Scoped<IO> m_io;
    EncodeOptions m_options;
    bool m_hasGrid = false;
    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
    std::vector<std::pair<std::string, int>> m_decimals; // by channel
    std::vector<ChannelSummary> m_summary;
};

} // namespace Quillmoran
