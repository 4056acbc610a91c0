// Translates coordinate systems between WKT and the GeoTIFF keys of older LAS files. Loading the libraries
// for this takes longer than decoding a small file, so they are in a module that is loaded at the first call.
// All functions throw General if the module is needed and cannot be loaded, and may be called from any
// thread.
//
// Text and keys may come from any file: they are limited to 1 MiB, parsed only as WKT or keys, and cannot
// cause a program to open a file or a connection that they name. Only fromUserInput() is for text of a user,
// which may name a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

// The values of the three GeoTIFF tags: the key directory and the numbers and texts that it refers to.
struct GeoTIFFKeys
{
    std::vector<std::uint16_t> directory; // empty: no keys
    std::vector<double> doubles;
    std::string ascii;

    bool operator==(const GeoTIFFKeys&) const = default;
};

namespace SpatialReference {

// Empty if the text or the keys are invalid.
std::optional<GeoTIFFKeys> toGeoTIFF(const char* wkt);
std::optional<std::string> toWKT(const GeoTIFFKeys& keys);

// Indented WKT; the unchanged text if it is invalid.
std::string pretty(const char* wkt);

// The WKT of a text in any notation that GDAL knows: "EPSG:25832", a PROJ string, WKT, or a file with one of
// them. Opens no connections. Empty if the text is not understood.
std::optional<std::string> fromUserInput(const char* text);

// Whether two texts, not null, describe the same coordinate system. Ignores names and the order of axes of a
// geographic system. An invalid text is the same only as an identical text.
bool isSame(const char* a, const char* b);

} // namespace SpatialReference

} // namespace Quillmoran
