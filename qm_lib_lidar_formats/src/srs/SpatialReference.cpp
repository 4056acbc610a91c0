#include "srs/SpatialReference.h"

#include "platform/LoadableModule.h"
#include "srs/SpatialReferenceModule.h"

namespace Quillmoran::SpatialReference {

namespace {

enum Tag : std::uint16_t
{
    INLINE = 0, // the value stands in the directory entry itself
    DIRECTORY = 34735,
    DOUBLES = 34736,
    ASCII = 34737
};

// A directory is a row of four numbers, the last of them the number of keys, then a row per key: ID, tag that
// holds the value, count, and index of the value in that tag.
bool isConsistent(const GeoTIFFKeys& keys)
{
    constexpr std::size_t row = 4;
    if (keys.directory.size() < row || keys.directory.size() / row - 1 < keys.directory[3])
        return false;
    for (std::size_t key = 1; key <= keys.directory[3]; ++key) {
        const std::uint16_t* const entry = keys.directory.data() + key * row;
        const std::size_t end = std::size_t{entry[2]} + entry[3];
        const bool fits = entry[1] == INLINE || (entry[1] == DIRECTORY && end <= keys.directory.size()) ||
                          (entry[1] == DOUBLES && end <= keys.doubles.size()) ||
                          (entry[1] == ASCII && end <= keys.ascii.size());
        if (!fits)
            return false;
    }
    return true;
}

template <class Function>
Function* findInModule(const char* name)
{
    return LoadableModule::find<Function>(SRS_MODULE, name);
}

} // namespace

std::optional<GeoTIFFKeys> toGeoTIFF(const char* wkt)
{
    GeoTIFFKeys keys;
    const auto convert = findInModule<decltype(qmWKTToGeoTIFF)>("qmWKTToGeoTIFF");
    if (!convert || !convert(wkt, keys))
        return std::nullopt;
    return keys;
}

std::optional<std::string> toWKT(const GeoTIFFKeys& keys)
{
    if (!isConsistent(keys) || keys.directory[3] == 0)
        return std::nullopt;
    std::string wkt;
    const auto convert = findInModule<decltype(qmGeoTIFFToWKT)>("qmGeoTIFFToWKT");
    if (!convert || !convert(keys, wkt))
        return std::nullopt;
    return wkt;
}

std::string pretty(const char* wkt)
{
    std::string text;
    const auto indent = findInModule<decltype(qmPrettyWKT)>("qmPrettyWKT");
    return indent && indent(wkt, text) ? text : wkt;
}

} // namespace Quillmoran::SpatialReference
