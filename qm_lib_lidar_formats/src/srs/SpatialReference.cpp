#include "srs/SpatialReference.h"

#include "platform/LoadableModule.h"
#include "srs/SpatialReferenceModule.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace Quillmoran::SpatialReference {

namespace {

enum Tag : std::uint16_t
{
    INLINE = 0, // the value is in the directory entry
    DOUBLES = 34736,
    ASCII = 34737
};

// A directory has rows of four numbers. The first row begins with the version 1 and ends with the number of
// keys; then follows a row per key: ID, tag with the value, count, and index of the value in that tag.
constexpr std::size_t row = 4;

bool isUsable(const std::uint16_t* key, const GeoTIFFKeys& keys)
{
    const std::size_t end = std::size_t{key[2]} + key[3];
    return (key[1] == INLINE && key[2] == 1) || (key[1] == DOUBLES && end <= keys.doubles.size()) ||
           (key[1] == ASCII && end <= keys.ascii.size());
}

// The directory without keys that refer to missing values, which some files have; empty when no key is left.
std::vector<std::uint16_t> usableDirectory(const GeoTIFFKeys& keys)
{
    const auto& all = keys.directory;
    if (all.size() < row || all[0] != 1)
        return {};
    std::vector<std::uint16_t> usable(all.begin(), all.begin() + row);
    const std::size_t numKeys = std::min<std::size_t>(all[3], all.size() / row - 1);
    for (std::size_t key = 1; key <= numKeys; ++key)
        if (isUsable(all.data() + key * row, keys))
            usable.insert(usable.end(), all.data() + key * row, all.data() + (key + 1) * row);
    usable[3] = static_cast<std::uint16_t>(usable.size() / row - 1);
    return usable[3] == 0 ? std::vector<std::uint16_t>() : usable;
}

template <class Function>
Function* findInModule(const char* name)
{
    const auto function = LoadableModule::find<Function>(SRS_MODULE, name);
    if (!function)
        QM_THROW(ErrorCode::General, "the module for coordinate systems, '%s', is not installed", SRS_MODULE);
    return function;
}

} // namespace

std::optional<GeoTIFFKeys> toGeoTIFF(const char* wkt)
{
    GeoTIFFKeys keys;
    const auto convert = findInModule<decltype(qmWKTToGeoTIFF)>("qmWKTToGeoTIFF");
    if (!convert(wkt, keys))
        return std::nullopt;
    return keys;
}

std::optional<std::string> toWKT(const GeoTIFFKeys& keys)
{
    const GeoTIFFKeys usable{usableDirectory(keys), keys.doubles, keys.ascii};
    if (usable.directory.empty())
        return std::nullopt;
    // A translation takes milliseconds, and the tiles of a survey have the same keys.
    static std::mutex mutex;
    static std::pair<GeoTIFFKeys, std::optional<std::string>> last;
    const std::lock_guard<std::mutex> lock(mutex);
    if (usable != last.first) {
        std::string wkt;
        const auto convert = findInModule<decltype(qmGeoTIFFToWKT)>("qmGeoTIFFToWKT");
        last = {usable, convert(usable, wkt) ? std::optional(wkt) : std::nullopt};
    }
    return last.second;
}

std::string pretty(const char* wkt)
{
    std::string text;
    const auto indent = findInModule<decltype(qmPrettyWKT)>("qmPrettyWKT");
    return indent(wkt, text) ? text : wkt;
}

std::optional<std::string> fromUserInput(const char* text)
{
    std::string wkt;
    const auto convert = findInModule<decltype(qmUserInputToWKT)>("qmUserInputToWKT");
    return convert(text, wkt) ? std::optional(wkt) : std::nullopt;
}

bool isSame(const char* a, const char* b)
{
    if (std::strcmp(a, b) == 0)
        return true;
    const auto compare = findInModule<decltype(qmSameWKT)>("qmSameWKT");
    return compare(a, b);
}

} // namespace Quillmoran::SpatialReference
