// The human-readable list of the files in an index, with their changes since they were indexed.
#pragma once

#include <vxunpack/PersistentPointSourceManager.h>

#include <cstdio>

namespace Quillmoran {

// With an opener, opens each file and compares its description; otherwise compares only times. Prints a line for
// each file: state, points, x-min, x-max, y-min, y-max, z-min, z-max, path. If files were opened and some differ,
// throws General "%zu of %zu files are not as they were indexed" at the end.
void printTiles(std::FILE* stream, const PersistentPointSourceManager& index,
                const PersistentPointSourceManager::FileOpener* opener);

} // namespace Quillmoran
