// The only way in which text of a file reaches GDAL: as WKT, never as "user input", which may also be a URL,
// a path or a PROJ string. Each module that uses GDAL compiles this source.
#pragma once

#include <string>
#include <string_view>

class OGRSpatialReference;

namespace Quillmoran {

// Whether the text may name a file that PROJ opens when it parses the text: a parameter of a PROJ string
// (init, nadgrids, file, ...), as EXTENSION["PROJ4", ...] of WKT 1 can hold, or PARAMETERFILE of WKT 2.
// "nadgrids=@null" names none.
bool namesFile(std::string_view text);

// False if the text is not WKT, has more than 1 MiB, names a file or has control characters other than tabs
// and line breaks. Opens nothing but the data files of GDAL and PROJ.
bool parseWKT(const char* text, OGRSpatialReference& reference);

// The text in the notation of GDAL's WKT 1, for libraries that take other texts than WKT as well; empty if it
// is not understood.
std::string toWKT1(const char* text);

} // namespace Quillmoran
