// What an index holds and whether its files are still as they were indexed, for people.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>

#include <cstdio>

namespace Quillmoran {

class TileReport
{
public:
    using FileOpener = PersistentPointSourceManager::FileOpener;

    // With an opener the files are opened and their points compared, too, otherwise only their times. All are
    // borrowed.
    TileReport(const TileSet& set, const FileOpener* opener) : m_set(set), m_opener(opener) {}

    // A line for each file: state, points, x-min, x-max, y-min, y-max, z-min, z-max, path. When files were
    // opened and one is not as it was indexed, this is -1 "%zu of %zu files are not as they were indexed" at
    // the end.
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

    const TileSet& m_set;
    const FileOpener* const m_opener;
    std::size_t m_differing = 0; // files printed that are not as they were indexed
};

} // namespace Quillmoran
