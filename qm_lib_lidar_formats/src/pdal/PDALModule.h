// What the module that links PDAL gives to PDALFormats, which describes the functions.
#pragma once

#include <vxunpack/PointSource.h>
#include <vxunpack/PointWriter.h>

extern "C" {

Quillmoran::PointReader* qmCreatePDALPointReader(const char* path);
Quillmoran::PointWriter* qmCreatePDALPointWriter(Quillmoran::PointSource* source, const char* path);
}
