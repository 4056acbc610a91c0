#include "srs/SpatialReference.h"

#include <gtest/gtest.h>
#include <string>

namespace Quillmoran::SpatialReference {

namespace {

const std::string wgs84 = R"(GEOGCS["WGS 84",DATUM["WGS_1984",SPHEROID["WGS 84",6378137,298.257223563]],)"
                          R"(PRIMEM["Greenwich",0],UNIT["degree",0.0174532925199433]])";

std::string utm(int zone, const std::string& name = "a grid", const std::string& extension = "")
{
    return "PROJCS[\"" + name + "\"," + wgs84 +
           R"(,PROJECTION["Transverse_Mercator"],PARAMETER["latitude_of_origin",0],)"
           R"(PARAMETER["central_meridian",)" +
           std::to_string(6 * zone - 183) +
           R"(],PARAMETER["scale_factor",0.9996],PARAMETER["false_easting",500000],)"
           R"(PARAMETER["false_northing",0],UNIT["metre",1])" +
           extension + "]";
}

} // namespace

TEST(SpatialReferenceTest, ComparesSystemsAndNotTheirTexts)
{
    EXPECT_TRUE(isSame(utm(32).c_str(), utm(32, "another name").c_str()));
    EXPECT_TRUE(isSame(utm(32).c_str(), pretty(utm(32).c_str()).c_str()));
    EXPECT_FALSE(isSame(utm(32).c_str(), utm(33).c_str()));
    EXPECT_FALSE(isSame(utm(32).c_str(), wgs84.c_str()));
    // Of what is not understood only equal texts are the same.
    for (const char* text : {"", "no coordinate system", "EPSG:32632", "+proj=utm +zone=32"}) {
        EXPECT_TRUE(isSame(text, text)) << text;
        EXPECT_FALSE(isSame(text, (std::string(text) + ' ').c_str())) << text;
        EXPECT_FALSE(isSame(text, utm(32).c_str())) << text;
    }
}

} // namespace Quillmoran::SpatialReference
