// Makes a plain copy of a compressed BPF file. PDAL keeps all the points of such a file in memory, lacks one
// of the two methods in some of its builds, and takes damaged data for points.
#pragma once

#include "pdal/BPFHeader.h"
#include <vxunpack/FileIO.h>

namespace Quillmoran {

// A temporary file that goes with its object. Damage is BPFRead.
Scoped<FileIO::Imp> unpackBPF(const IO& packed, const BPFHeader& header);

} // namespace Quillmoran
