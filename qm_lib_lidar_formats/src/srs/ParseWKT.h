// Passes text of a file to GDAL as WKT only, not as "user input", which may also be a URL, a path or a PROJ
// string. Each module that uses GDAL compiles this source.
#pragma once

#include <string>
#include <string_view>

class OGRSpatialReference;

namespace Quillmoran {

// Whether the text may name a file that PROJ opens when it parses the text: a parameter of a PROJ string
// (init, nadgrids, file, ...) as in EXTENSION["PROJ4", ...] of WKT 1, or PARAMETERFILE of WKT 2.
// "nadgrids=@null" does not name a file.
bool namesFile(std::string_view text);

// False if the text is not WKT, has more than 1 MiB, names a file or has control characters other than tabs
// and line breaks. Opens only the data files of GDAL and PROJ.
bool parseWKT(const char* text, OGRSpatialReference& reference);

// The text as GDAL's WKT 1, for libraries that also accept other notations; empty if parseWKT() fails.
std::string toWKT1(const char* text);

} // namespace Quillmoran
