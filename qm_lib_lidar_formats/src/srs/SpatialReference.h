// Coordinate systems in their two notations: WKT and the GeoTIFF keys of older LAS files. The libraries that
// know them take several times as long to load as a small file takes to decode, so they stand in a module
// that is loaded at the first call; without the module nothing is understood.
#pragma once

#include "platform/Export.h"

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

// Nothing when the text or the keys are not understood. Keys may come from any file.
QM_API std::optional<GeoTIFFKeys> toGeoTIFF(const char* wkt);
QM_API std::optional<std::string> toWKT(const GeoTIFFKeys& keys);

// WKT indented for people; the text as it is when it is not understood.
QM_API std::string pretty(const char* wkt);

// Whether two texts describe the same coordinate system. Names, and the order of axes of a geographic system,
// make no difference. Equal texts are the same; a text that is not understood equals no other. Neither may be
// null. May be called from any thread.
QM_API bool isSame(const char* a, const char* b);

} // namespace SpatialReference

} // namespace Quillmoran
