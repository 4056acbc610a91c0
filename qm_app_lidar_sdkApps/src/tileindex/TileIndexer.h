// vxindex: builds or updates an index, or lists its files.
#pragma once

#include "utils/program/Program.h"
#include <vxunpack/FilePointSourceManager.h>

#include <string>
#include <vector>

namespace Quillmoran {

class PersistentPointSourceWriter;
class ProgressDelegate;

class TileIndexer final : public Program
{
public:
    TileIndexer();

private:
    // Numbers of tiles.
    struct Changes
    {
        std::size_t added = 0, refreshed = 0, removed = 0;
    };

    void checkOptions() const override;
    bool work() override;

    void build() const;
    void report() const;
    void printSummary() const;
    std::vector<std::string> collectInputs() const;
    void refuseInputs(const std::vector<std::string>& inputs) const;
    void refuseAsOverview(std::vector<std::string> files) const;
    std::string findPresentOverview() const;
    Changes updateTiles(PersistentPointSourceWriter& writer, const std::vector<std::string>& inputs,
                        ProgressDelegate& delegate) const;
    void configure(PersistentPointSourceWriter& writer) const;
    void setOverview(PersistentPointSourceWriter& writer) const;
    void createOverview(PersistentPointSourceWriter& writer, ProgressDelegate& delegate) const;

    Scoped<SimpleFileOpener> m_opener{SimpleFileOpener::create()};
};

} // namespace Quillmoran
