// What a legend says about a coordinate system. Reads only the text: loading the libraries for coordinate systems takes
// longer than drawing a picture.
#pragma once

#include <string>

namespace Quillmoran {

struct CoordinateSystemName
{
    std::string name;          // empty: unknown
    std::string unit;          // of x and y: "m", "ft", "°", another name, or empty
    std::string heightUnit;    // the same of z
    bool isGeographic = false; // x and y are angles

    // From WKT of either version; null and malformed texts have no name.
    static CoordinateSystemName parse(const char* wkt);
};

} // namespace Quillmoran
