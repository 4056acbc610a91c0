// Texts of coordinate systems.
#pragma once

#include <string>

namespace Quillmoran::Testing {

const std::string wgs84 = R"(GEOGCS["WGS 84",DATUM["WGS_1984",SPHEROID["WGS 84",6378137,298.257223563]],)"
                          R"(PRIMEM["Greenwich",0],UNIT["degree",0.0174532925199433]])";

// In metres, by default as in UTM.
inline std::string transverseMercator(int meridian, const std::string& name = "a grid",
                                      const std::string& extension = "", int northing = 0,
                                      const std::string& scale = "0.9996",
                                      const std::string& easting = "500000")
{
    return "PROJCS[\"" + name + "\"," + wgs84 +
           R"(,PROJECTION["Transverse_Mercator"],PARAMETER["latitude_of_origin",0],)"
           R"(PARAMETER["central_meridian",)" +
           std::to_string(meridian) + R"(],PARAMETER["scale_factor",)" + scale +
           R"(],PARAMETER["false_easting",)" + easting + R"(],PARAMETER["false_northing",)" +
           std::to_string(northing) + R"(],UNIT["metre",1])" + extension + "]";
}

// A text in which `from` is `to`.
inline std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    return text.replace(text.find(from), from.size(), to);
}

} // namespace Quillmoran::Testing
