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
// Packets come in this order; ones of other names may stand between them and are passed over. A path that is
// not absolute is meant from the directory of the index.
#pragma once

#include "utils/TileSet.h"

namespace Quillmoran {

class DiskRTree;
class IO;
class MemoryRTree;

namespace TileSetFile {

// Replaces both; after an error neither is to be used. Paths come as they are stored. What is cut is the
// system's error "failed reading: ...", what cannot be true -1 with the same text; further -1 "bad magic",
// "unsupported version" and "unknown chunk name '%s' was expecting '%s'". The tree reads on through the
// store.
void read(IO* io, TileSet& set, DiskRTree& tree);

// The tree is stored on a grid of these steps. -1 "failed writing: ..." for what the file cannot hold.
void write(IO* io, const TileSet& set, const MemoryRTree& tree, const double scale[3]);

} // namespace TileSetFile

} // namespace Quillmoran
