// The writer of compressed point clouds (".vxl"). Unless its options say otherwise it is lossless: every
// sample is restored exactly and in the original order, with scale and offset, coordinate system, class names
// and metadata.
//
// A source that can be sampled (PointSource::createSampleIterator) is read once if all of its points are
// written: the coding is chosen from samples. If the points turn out to differ from them, or if there are no
// samples, the source is read twice: the first pass surveys the channels, the second encodes them. The bands
// are collected in a temporary file. Memory does not grow with the number of points, unless the points per index
// entry are given: by default an index has at most 65,536 entries, which use up to 150 bytes each while the
// index is written.
#pragma once

#include <vxunpack/EncodeOptions.h>
#include <vxunpack/IO.h>
#include <vxunpack/PointWriter.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

// Used by one thread at a time. write() uses the threads of the pool.
class QM_API VX7PointWriter final : public PointWriter
{
public:
    // Returns a new writer with a count of 1.
    static VX7PointWriter* create();

    // Sets the source and the output; both are retained. With a path, the file is written as a temporary file
    // in the same directory and replaces the path only when it is complete. An IO is written from its start
    // once all points are encoded.
    void init(PointSource* source, const char* path);
    void init(PointSource* source, IO* io);
    // Throws InvalidArgument for a value out of its range, General "bad transform type" for an unknown
    // transform.
    void setOptions(const EncodeOptions& options);

    // The scale and offset of X, Y and Z to try first. Coordinates are stored with them only if that is
    // lossless. By default, those of the source.
    void setQuantization(const double* scale, const double* offset) override;
    const double* getScale() const override { return m_hasGrid ? m_scale : nullptr; }
    const double* getOffset() const override { return m_hasGrid ? m_offset : nullptr; }

    // Returns the number of points written. A failed call leaves no partial output.
    //
    // InvalidArgument: init() was not called ("the writer has no source"), a channel does not support an
    // option, a name cannot be stored, or the two passes read different points. Cancelled "VX7 Write
    // operation cancelled.": the delegate, which is checked once per block, asked to stop. OutputCreate,
    // Write, OSError: the output cannot be written. Errors of the source are passed on.
    std::int64_t write(const Bounds& bounds, double fraction, const PointInfo& layout,
                       ProgressDelegate* delegate) override;
    // All channels of known sample types.
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

    // How a channel record of the last write() was coded. A point channel can have three records.
    struct ChannelSummary
    {
        std::string name;       // with the prefix of a part
        std::uint8_t transform; // see ChannelChoice
        std::uint32_t subblockSize;
        double scale; // 0 unless quantized
        double offset;
        std::int64_t size; // bytes
    };
    // In the order of the records. Valid until the next write().
    const std::vector<ChannelSummary>& getSummary() const noexcept { return m_summary; }
    // The size in bytes of the file that was written last.
    std::int64_t getFileSize() const noexcept { return m_fileSize; }
    // Why the last write() had to start over and read the source again, human-readable; empty if it did not.
    const std::string& getRestart() const noexcept { return m_restart; }

private:
    VX7PointWriter() = default;

    void addPointCount(Metadata& metadata, std::int64_t numPoints) const;
    static void addDecimals(Metadata& metadata, const std::vector<std::pair<std::string, int>>& decimals);

    std::optional<std::string> m_path; // the output is m_path or m_io
    Scoped<IO> m_io;
    EncodeOptions m_options;
    bool m_hasGrid = false;
    double m_scale[3] = {0, 0, 0};
    double m_offset[3] = {0, 0, 0};
    std::vector<ChannelSummary> m_summary;
    std::int64_t m_fileSize = 0;
    std::string m_restart;
};

} // namespace Quillmoran
