// The human-readable list of the files in an index, with their changes since they were indexed.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>

#include <cstdio>

namespace Quillmoran {

class TileReport
{
public:
    using FileOpener = PersistentPointSourceManager::FileOpener;

    // With an opener, opens each file and compares its description; otherwise compares only times. Borrows
    // both.
    TileReport(const PersistentPointSourceManager& index, const FileOpener* opener)
        : m_index(index), m_opener(opener)
    {}

    // A line for each file: state, points, x-min, x-max, y-min, y-max, z-min, z-max, path. If files were
    // opened and some differ, throws General "%zu of %zu files are not as they were indexed" at the end.
    void print(std::FILE* stream);

private:
    enum class State
    {
        Same,
        Changed,
        Missing,
        Unreadable
    };

    State findState(const TileInfo& tile) const;
    State compare(const TileInfo& tile) const;
    void printTile(std::FILE* stream, const TileInfo& tile);

    const PersistentPointSourceManager& m_index;
    const FileOpener* const m_opener;
    std::size_t m_differing = 0; // printed files that changed
};

} // namespace Quillmoran
