// What the module that links PDAL gives to PDALFormats, which describes the functions.
#pragma once

#include <vxunpack/Export.h>
#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>

extern "C" {

QM_API Quillmoran::PointReader* qmCreatePDALPointReader(const char* path);
QM_API Quillmoran::PointWriter* qmCreatePDALPointWriter(Quillmoran::PointSource* source, const char* path);
}
