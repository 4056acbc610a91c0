// The functions that SpatialReference calls in the module for coordinate systems. SpatialReference.h
// describes them.
#pragma once

#include "srs/SpatialReference.h"

#include <vxunpack/Export.h>

extern "C" {

QM_API bool qmWKTToGeoTIFF(const char* wkt, Quillmoran::GeoTIFFKeys& keys);
// `keys` are consistent: every entry of the directory refers to existing values.
QM_API bool qmGeoTIFFToWKT(const Quillmoran::GeoTIFFKeys& keys, std::string& wkt);
QM_API bool qmPrettyWKT(const char* wkt, std::string& pretty);
QM_API bool qmUserInputToWKT(const char* text, std::string& wkt);
QM_API bool qmSameWKT(const char* a, const char* b);
}
