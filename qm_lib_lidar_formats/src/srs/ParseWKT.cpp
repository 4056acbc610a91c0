#include "srs/ParseWKT.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <ogr_spatialref.h>
#include <string>

namespace Quillmoran {

namespace {

constexpr std::size_t maxBytes = 1 << 20;

bool isControl(char c)
{
    const auto code = static_cast<unsigned char>(c);
    return (code < 0x20 && c != '\n' && c != '\r' && c != '\t') || code == 0x7F;
}

} // namespace

// The text is searched as a whole: no disagreement about quotes and brackets can hide a parameter.
bool namesFile(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const std::string_view parameter : {"init=", "grids=", "file=", "model=", "catalog="}) {
        constexpr std::string_view none = "@null";
        for (std::size_t at = 0; (at = lower.find(parameter, at)) != std::string::npos;) {
            at += parameter.size();
            const std::size_t end = at + none.size();
            const bool isNone = lower.compare(at, none.size(), none) == 0 &&
                                (end == lower.size() || std::strchr(" \t\r\n\"", lower[end]));
            if (!isNone)
                return true;
        }
    }
    return false;
}

bool parseWKT(const char* text, OGRSpatialReference& reference)
{
    const std::string_view whole(text);
    return whole.size() <= maxBytes && std::none_of(whole.begin(), whole.end(), isControl) &&
           !namesFile(whole) && reference.importFromWkt(text) == OGRERR_NONE;
}

} // namespace Quillmoran
