// What the module of coordinate systems gives to SpatialReference, which describes the functions.
#pragma once

#include "srs/SpatialReference.h"

extern "C" {

bool qmWKTToGeoTIFF(const char* wkt, Quillmoran::GeoTIFFKeys& keys);
// `keys` are consistent: every entry of the directory lies within the values.
bool qmGeoTIFFToWKT(const Quillmoran::GeoTIFFKeys& keys, std::string& wkt);
bool qmPrettyWKT(const char* wkt, std::string& pretty);
bool qmSameWKT(const char* a, const char* b);
}
