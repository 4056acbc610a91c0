// The functions that PDALFormats calls in the module that links PDAL. PDALFormats.h describes them.
#pragma once

#include <vxunpack/Export.h>
#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>

extern "C" {

QM_API Quillmoran::PointReader* qmCreatePDALPointReader(const char* path);
QM_API Quillmoran::PointWriter* qmCreatePDALPointWriter(Quillmoran::PointSource* source, const char* path);
}
