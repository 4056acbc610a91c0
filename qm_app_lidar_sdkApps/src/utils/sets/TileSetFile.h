// The file of a tile-set index (".index"), read and written field by field. All numbers are big-endian.
//
//   "rtre" | version 4 | packet | packet ...
//   packet    name 4 | length of the payload 4 | payload
//
//   "info"    srs | number of channels 2 | channels | number of points 8 | WKT | bounds
//             | scale 8, offset 8 of x, of y, of z | number of classes 2 | class names
//   "week"    GPS week 4                                       only when week times are converted
//   "over"    tile | fraction 8                                only with an overview
//   "path"    number of tiles 4 | tiles
//   "tree"    the R-tree over the tiles' bounds: see RTree.h
//
//   channel   name | data type 2 | bits 2 | quantization 8
//   tile      path | timestamp 8 | bounds | number of points 8
//   bounds    min 8, max 8 of x, of y, of z                    text    length 2 | bytes
//
// Packets have this order. Packets with other names may occur between them and are skipped. Relative paths
// are relative to the directory of the index.
#pragma once

#include "utils/sets/TileSet.h"
#include "utils/sets/TileTable.h"

#include <memory>

namespace Quillmoran {

class DiskRTree;
class IO;
class MemoryRTree;

namespace TileSetFile {

// Returns the tiles, and replaces the other fields of the set, and the tree; both are undefined after an
// error. Paths are returned as stored. Throws the system's error "failed reading: ..." for a truncated file,
// and General with the same text for an impossible value. Other errors are General "bad magic", "unsupported
// version" and "unknown chunk name '%s' was expecting '%s'". The tiles and the tree keep reading from the
// file.
std::unique_ptr<TileTable> read(IO* io, TileSet& set, DiskRTree& tree);

// Stores the tree on a grid with the given scale. Throws General "failed writing: ..." for values beyond the
// file's limits.
void write(IO* io, const TileSet& set, const MemoryRTree& tree, const double scale[3]);

} // namespace TileSetFile

} // namespace Quillmoran
