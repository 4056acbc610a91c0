// BPF files, which PDAL reads and writes. PDAL is not on every machine, so what needs it stands in a module
// that is loaded at the first call; it is the same file that PDAL loads as the plugin of
// "readers.quillmoran". Without the module both functions throw -1 "this installation cannot read or write
// BPF files: its PDAL module is not there", and nothing is touched.
#pragma once

#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>

namespace Quillmoran {

// A new count of an opened reader. Everything that is wrong with the file is BPFRead "Failed to create
// PDALReader for path = '%s'" with the reason.
PointReader* createPDALPointReader(const char* path);

// A new count of a writer for the points of the source. Nothing is written before its write() begins.
PointWriter* createPDALPointWriter(PointSource* source, const char* path);

} // namespace Quillmoran
