// vxpack: opens the inputs as one source, applies the filters of the options and writes the file.
#pragma once

#include "utils/program/Program.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/VX7PointWriter.h>

namespace Quillmoran {

class Packer final : public Program
{
public:
    Packer();

private:
    void checkOptions() const override;
    bool work() override;

    void addInputs(FilePointSourceManager& files, ProgressDelegate& delegate) const;
    // Warns of a LAS file with too many bytes, or unusual coordinates, to be restored from the output.
    void warnOfUnrestorable(FilePointSourceManager& files, const Metadata& metadata) const;
    Scoped<PointSource> applyFilters(Scoped<PointSource> source) const;
    void printResult(const VX7PointWriter& writer, std::int64_t numPoints) const;
};

} // namespace Quillmoran
