#include "srs/SpatialReferenceModule.h"

#include "srs/ParseWKT.h"
#include "srs/QuietLibraries.h"

#include <cpl_conv.h>
#include <geo_normalize.h>
#include <geo_simpletags.h>
#include <geotiff.h>
#include <memory>
#include <ogr_spatialref.h>
#include <string_view>

// GDAL exports these two without declaring them in a header.
extern "C" {
char* GTIFGetOGISDefn(GTIF* keys, GTIFDefn* definition);
int GTIFSetFromOGISDefn(GTIF* keys, const char* wkt);
}

namespace {

using Quillmoran::GeoTIFFKeys;
using Quillmoran::QuietLibraries;

constexpr int directoryTag = 34735;
constexpr int doublesTag = 34736;
constexpr int asciiTag = 34737;

using CPLText = std::unique_ptr<char, decltype(&VSIFree)>;
using SimpleTags = std::unique_ptr<ST_TIFF, decltype(&ST_Destroy)>;
using Keys = std::unique_ptr<GTIF, decltype(&GTIFFree)>;
using Definition = std::unique_ptr<GTIFDefn, decltype(&GTIFFreeDefn)>;

template <class T>
T* getTag(const SimpleTags& tags, int tag, int& count)
{
    int type = 0;
    void* values = nullptr;
    count = 0;
    return ST_GetKey(tags.get(), tag, &count, &type, &values) ? static_cast<T*>(values) : nullptr;
}

template <class T>
void setTag(const SimpleTags& tags, int tag, int type, const T* values, std::size_t count)
{
    if (count != 0) // the library copies the values
        ST_SetKey(tags.get(), tag, static_cast<int>(count), type, const_cast<T*>(values));
}

// GDAL would fetch the text of a URL, also of one in its own file systems. Those of the OGC are names.
bool namesConnection(std::string_view text)
{
    const auto startsWith = [&](std::string_view prefix) {
        return text.size() >= prefix.size() && EQUALN(text.data(), prefix.data(), prefix.size());
    };
    for (const char* name : {"http://opengis.net/def/crs", "https://opengis.net/def/crs",
                             "http://www.opengis.net/def/crs", "https://www.opengis.net/def/crs"})
        if (startsWith(name))
            return false;
    return startsWith("http:") || startsWith("https:") || startsWith("/vsi");
}

} // namespace

bool qmWKTToGeoTIFF(const char* wkt, GeoTIFFKeys& keys)
{
    const QuietLibraries quiet;
    OGRSpatialReference reference;
    const SimpleTags tags(ST_Create(), ST_Destroy);
    const Keys gtif(GTIFNewSimpleTags(tags.get()), GTIFFree);
    // GTIFSetFromOGISDefn() parses the text again, as WKT.
    if (!Quillmoran::parseWKT(wkt, reference) || !gtif || !GTIFSetFromOGISDefn(gtif.get(), wkt) ||
        !GTIFWriteKeys(gtif.get()))
        return false;
    int count = 0;
    if (const auto* values = getTag<std::uint16_t>(tags, directoryTag, count))
        keys.directory.assign(values, values + count);
    if (const auto* values = getTag<double>(tags, doublesTag, count))
        keys.doubles.assign(values, values + count);
    if (const auto* values = getTag<char>(tags, asciiTag, count))
        keys.ascii.assign(values, values + count);
    return true;
}

bool qmGeoTIFFToWKT(const GeoTIFFKeys& keys, std::string& wkt)
{
    const QuietLibraries quiet;
    if (Quillmoran::namesFile(keys.ascii)) // a citation can hold WKT, which is parsed
        return false;
    const SimpleTags tags(ST_Create(), ST_Destroy);
    setTag(tags, directoryTag, STT_SHORT, keys.directory.data(), keys.directory.size());
    setTag(tags, doublesTag, STT_DOUBLE, keys.doubles.data(), keys.doubles.size());
    // Adds the NUL, which some files lack.
    setTag(tags, asciiTag, STT_ASCII, keys.ascii.c_str(), keys.ascii.empty() ? 0 : keys.ascii.size() + 1);
    const Keys gtif(GTIFNewSimpleTags(tags.get()), GTIFFree);
    const Definition definition(GTIFAllocDefn(), GTIFFreeDefn);
    if (!gtif || !definition || !GTIFGetDefn(gtif.get(), definition.get()))
        return false;
    const CPLText text(GTIFGetOGISDefn(gtif.get(), definition.get()), VSIFree);
    if (!text || *text == '\0')
        return false;
    wkt = text.get();
    return true;
}

bool qmPrettyWKT(const char* wkt, std::string& pretty)
{
    const QuietLibraries quiet;
    OGRSpatialReference reference;
    char* text = nullptr;
    const bool understood =
        Quillmoran::parseWKT(wkt, reference) && reference.exportToPrettyWkt(&text) == OGRERR_NONE;
    const CPLText owned(text, VSIFree);
    if (understood)
        pretty = text;
    return understood;
}

bool qmUserInputToWKT(const char* input, std::string& wkt)
{
    const QuietLibraries quiet;
    OGRSpatialReference reference, again;
    char* text = nullptr;
    const bool understood = !namesConnection(input) && reference.SetFromUserInput(input) == OGRERR_NONE &&
                            reference.exportToWkt(&text) == OGRERR_NONE;
    const CPLText owned(text, VSIFree);
    // What readers of the text would refuse, names of files for example, is not understood.
    if (!understood || !Quillmoran::parseWKT(text, again))
        return false;
    wkt = text;
    return true;
}

bool qmSameWKT(const char* a, const char* b)
{
    const QuietLibraries quiet;
    OGRSpatialReference first, second;
    if (!Quillmoran::parseWKT(a, first) || !Quillmoran::parseWKT(b, second))
        return false;
    const char* const options[] = {"CRITERION=EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS",
                                   "IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES", nullptr};
    return first.IsSame(&second, options) != 0;
}
