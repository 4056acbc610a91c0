// Writes BPF files through PDAL: version 3, uncompressed, point by point. Part of the module, see
// PDALFormats.h. docs/pdal.md lists what the format cannot hold.
//
// All values are stored as floats of 24 significant bits, so values that need more (coordinates, times, large
// integers) are stored as differences from an origin near the first point.
#pragma once

#include "files/OutputFile.h"
#include "pdal/PDALBPFOutput.h"
#include "pdal/PDALDimensions.h"
#include <vxunpack/PointWriter.h>

#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

class PDALPointWriter final : public SimplePointWriter
{
public:
    static PDALPointWriter* create();

    // write() creates the file. Throws General for a name with a "#", which PDAL uses for a set of files.
    void init(PointSource* source, const char* outputFile);

    // At most 255 channels, with names of at most 31 characters, each once.
    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override;

protected:
    // Throws OutputCreate "Unable to create output %s. " followed by the reason if the file cannot be created
    // or is not a regular file, and InvalidArgument for an unusable scale or offset.
    void writeBegin(const PointInfo& layout) override;
    // Checks the delegate once per block, and throws Cancelled "BPF Write operation cancelled." if it asks to
    // stop. Throws NotRepresentable for 2^31 or more points.
    void writePoints(const PointData& block, std::size_t count, ProgressDelegate* delegate) override;
    void writeEnd(std::int64_t count, const Bounds& bounds) override;
    void writeAborted() noexcept override;

private:
    // A channel of the layout and its dimension in the file. X, Y and Z are first.
    struct Column
    {
        std::string dimension;
        std::size_t channel; // in the layout
        double factor;       // from samples to values
        double scale;        // unit of the stored values
        double origin;       // subtracted before values are stored
    };

    PDALPointWriter() = default;

    void chooseColumns(const PointInfo& layout);
    void openOutput();
    void chooseOrigins(const PointData& block, std::size_t count);
    void fillColumn(const Column& column, const PointData& block, std::size_t first, std::size_t count,
                    std::vector<double>& values) const;
    void completeFile();
    [[noreturn]] void throwIncomplete() const;

    // The file being written.
    std::vector<Column> m_columns;
    std::vector<std::vector<double>> m_values; // of one view, per column
    std::int64_t m_total = 0;                  // points
    bool m_warned = false;                     // of the coordinate system
    OutputFile m_output{"BPF", OutputFile::SEEKABLE, "+w"};
    std::unique_ptr<PDALBPFOutput> m_bpf; // writes to the output, so it is destroyed first
};

} // namespace Quillmoran
