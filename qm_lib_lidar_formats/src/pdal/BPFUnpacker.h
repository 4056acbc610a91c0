// Makes an uncompressed copy of a compressed BPF file. PDAL would hold all points of such a file in memory,
// some of its builds lack one of the two methods, and it does not detect malformed data.
#pragma once

#include "pdal/BPFHeader.h"
#include <vxunpack/FileIO.h>

namespace Quillmoran {

// The copy is a temporary file, which is removed when its object is destroyed. Throws BPFRead if the data are
// malformed.
Scoped<FileIO::Imp> unpackBPF(const IO& packed, const BPFHeader& header);

} // namespace Quillmoran
