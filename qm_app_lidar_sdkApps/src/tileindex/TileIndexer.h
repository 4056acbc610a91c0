// One run of vxindex: declares and parses the options, then builds or updates an index, or tells what one
// holds.
#pragma once

#include "cli/QMCmdLine.h"
#include <vxunpack/FilePointSourceManager.h>

#include <vector>

namespace Quillmoran {

class PersistentPointSourceWriter;
class ProgressDelegate;

class TileIndexer
{
public:
    TileIndexer();

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    // Failures are thrown.
    void run();

private:
    // How many tiles a run changed.
    struct Changes
    {
        std::size_t added = 0, refreshed = 0, removed = 0;
    };

    void build() const;
    void report() const;
    void printSummary() const;
    std::vector<QMFileSpec> collectInputs() const;
    void refuseInputs(const std::vector<QMFileSpec>& inputs) const;
    void refuseAsOverview(const std::vector<QMFileSpec>& files) const;
    QMFileSpec findPresentOverview() const;
    Changes updateTiles(PersistentPointSourceWriter& writer, const std::vector<QMFileSpec>& inputs,
                        ProgressDelegate& delegate) const;
    void configure(PersistentPointSourceWriter& writer) const;
    void setOverview(PersistentPointSourceWriter& writer) const;
    void createOverview(PersistentPointSourceWriter& writer, ProgressDelegate& delegate) const;
    Scoped<PointSource> openIndex() const; // the finished one

    QMCmdLine m_cmdLine;
    Scoped<SimpleFileOpener> m_opener{SimpleFileOpener::create()};
};

} // namespace Quillmoran
