#include "srs/ParseWKT.h"

#include <cctype>
#include <cpl_vsi.h>
#include <cstddef>
#include <memory>
#include <ogr_spatialref.h>
#include <string>

namespace Quillmoran {

namespace {

constexpr std::size_t maxBytes = 1 << 20;

// Control characters other than white space between the parts of WKT. A line break in a name could imitate a
// line of a report.
bool hasControls(std::string_view text)
{
    bool isQuoted = false;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        const bool isSpace = c == '\n' || c == '\r' || c == '\t';
        if ((code < 0x20 && (isQuoted || !isSpace)) || code == 0x7F)
            return true;
        isQuoted ^= c == '"';
    }
    return false;
}

} // namespace

// Searches the whole text without its white space, so that unusual quotes, brackets and blanks cannot hide a
// name.
bool namesFile(std::string_view text)
{
    std::string all;
    for (const char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            all += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (all.find("parameterfile[") != std::string::npos || all.find("parameterfile(") != std::string::npos)
        return true;
    for (const std::string_view parameter : {"init=", "grids=", "file=", "model=", "catalog="})
        for (std::size_t at = 0; (at = all.find(parameter, at)) != std::string::npos;) {
            constexpr std::string_view none = "@null";
            at += parameter.size();
            const std::size_t end = at + none.size();
            const bool isNone = all.compare(at, none.size(), none) == 0 &&
                                (end == all.size() || all[end] == '+' || all[end] == '"');
            if (!isNone)
                return true;
        }
    return false;
}

bool parseWKT(const char* text, OGRSpatialReference& reference)
{
    const std::string_view whole(text);
    return whole.size() <= maxBytes && !hasControls(whole) && !namesFile(whole) &&
           reference.importFromWkt(text) == OGRERR_NONE;
}

std::string toWKT1(const char* text)
{
    OGRSpatialReference reference;
    const char* const options[] = {"FORMAT=WKT1_GDAL", nullptr};
    char* exported = nullptr;
    const bool understood =
        parseWKT(text, reference) && reference.exportToWkt(&exported, options) == OGRERR_NONE;
    const std::unique_ptr<char, decltype(&VSIFree)> owned(exported, VSIFree);
    return understood ? exported : "";
}

} // namespace Quillmoran
