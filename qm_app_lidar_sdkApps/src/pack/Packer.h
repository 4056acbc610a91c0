// One run of vxpack: declares and parses the options, opens the inputs, puts the filters that were asked for
// between them and the writer, and writes the file.
#pragma once

#include "cli/QMCmdLine.h"
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/VX7PointWriter.h>

namespace Quillmoran {

class Packer
{
public:
    Packer();

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    // Failures are thrown.
    void run();

private:
    void pack() const;
    void addInputs(FilePointSourceManager& files, ProgressDelegate& delegate) const;
    // The source with the filters of the options in front of it.
    Scoped<PointSource> applyFilters(Scoped<PointSource> source) const;
    void printResult(const VX7PointWriter& writer, std::int64_t numPoints) const;

    QMCmdLine m_cmdLine;
};

} // namespace Quillmoran
