// BPF files, which PDAL reads and writes. PDAL is optional, so the code that needs it is in a module, which
// is loaded at the first call; PDAL loads the same file as the plugin of "readers.quillmoran". Without the
// module both functions throw General "this installation cannot read or write BPF files: its PDAL module is
// not there".
#pragma once

#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>

namespace Quillmoran {

// An opened reader with a count of 1. Any fault of the file is BPFRead "Failed to create PDALReader for path
// = '%s'" with the reason.
PointReader* createPDALPointReader(const char* path);

// A writer for the points of the source, with a count of 1. No file is created before its write().
PointWriter* createPDALPointWriter(PointSource* source, const char* path);

} // namespace Quillmoran
