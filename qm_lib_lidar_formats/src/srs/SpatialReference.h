// Coordinate systems in their two notations: WKT and the GeoTIFF keys of older LAS files. The libraries that
// understand them take several times as long to load as a small file takes to decode, so they are in a module
// that is loaded at the first call. All functions throw -1 if the module is needed and cannot be loaded.
//
// Text and keys may come from any file: they are limited to 1 MiB, parsed as WKT or keys and as nothing else,
// and make no program open a file or a connection that they name.
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

    bool operator==(const GeoTIFFKeys& other) const
    {
        return directory == other.directory && doubles == other.doubles && ascii == other.ascii;
    }
};

namespace SpatialReference {

// Nothing if the text or the keys are not understood.
std::optional<GeoTIFFKeys> toGeoTIFF(const char* wkt);
std::optional<std::string> toWKT(const GeoTIFFKeys& keys);

// WKT indented for people; the text as it is when it is not understood.
std::string pretty(const char* wkt);

// Whether two texts describe the same coordinate system. Names, and the order of axes of a geographic system,
// make no difference. Equal texts are the same; a text that is not understood equals no other. Neither may be
// null. May be called from any thread.
bool isSame(const char* a, const char* b);

} // namespace SpatialReference

} // namespace Quillmoran
