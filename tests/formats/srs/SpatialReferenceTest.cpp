#include "srs/SpatialReference.h"

#include "support/CoordinateSystems.h"
#include "support/Test.h"

#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Quillmoran::SpatialReference {

namespace {

using namespace Testing;

std::string utm(int zone, const std::string& name = "a grid")
{
    return transverseMercator(6 * zone - 183, name);
}

std::string withPROJ4(const std::string& projString)
{
    return transverseMercator(9, "a grid", ",EXTENSION[\"PROJ4\",\"" + projString + "\"]");
}

// A file and a server that no text may cause a program to open.
class Decoy
{
public:
    Decoy()
    {
        inotify_add_watch(m_watch, file.c_str(), IN_OPEN);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(m_server, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(m_server, 16), 0);
        getsockname(m_server, reinterpret_cast<sockaddr*>(&address), &size);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/decoy";
    }
    ~Decoy()
    {
        close(m_watch);
        close(m_server);
    }
    Decoy(const Decoy&) = delete;
    Decoy& operator=(const Decoy&) = delete;

    // Whether something opened the file or the connection since the last call.
    bool wasOpened() const
    {
        char events[4096];
        const bool touched = read(m_watch, events, sizeof events) > 0;
        const int connection = accept(m_server, nullptr, nullptr);
        if (connection >= 0)
            close(connection);
        return touched || connection >= 0;
    }

private:
    TemporaryDirectory m_directory;

public:
    const std::string file = m_directory.file("decoy", wgs84);
    std::string url;

private:
    int m_watch = inotify_init1(IN_NONBLOCK);
    int m_server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
};

// Keys whose citation has WKT, as some programs write them.
GeoTIFFKeys keysWithWKT(const std::string& wkt)
{
    const std::string citation = "ESRI PE String = " + wkt;
    const auto length = static_cast<std::uint16_t>(citation.size());
    return {{1, 1, 0, 2, 1024, 0, 1, 32767, 3073, 34737, length, 0}, {}, citation};
}

} // namespace

TEST(SpatialReferenceTest, OpensNoFileOrURLInAText)
{
    const Decoy decoy;
    setenv("GDAL_HTTP_TIMEOUT", "1", 1); // seconds; the server does not answer
    setenv("PROJ_NETWORK", "ON", 1);
    const std::string pipeline = "+proj=pipeline +step ";
    for (const std::string& name : {decoy.file, decoy.url}) {
        const std::string texts[] = {
            name,
            "/vsicurl/" + name,
            "ESRI::" + name,
            "+init=" + name + ":1",
            withPROJ4(pipeline + "+init=" + name + ":1"),
            withPROJ4(pipeline + "+InIt\n =\t" + name + ":1"),
            withPROJ4("+proj=ob_tran +o_proj=longlat +o_lat_p=3 +init=" + name + ":1"),
            withPROJ4("+proj=longlat +ellps=bessel +nadgrids=@null," + name),
            "BOUNDCRS[SOURCECRS[" + wgs84 + "],TARGETCRS[" + wgs84 +
                "],ABRIDGEDTRANSFORMATION[\"t\",METHOD[\"NTv2\",ID[\"EPSG\",9615]],PARAMETERFILE "
                "[\"Latitude and longitude difference file\",\"" +
                name + "\"]]]",
        };
        for (const std::string& text : texts) {
            EXPECT_EQ(pretty(text.c_str()), text);
            EXPECT_EQ(toGeoTIFF(text.c_str()), std::nullopt) << text;
            EXPECT_FALSE(isSame(text.c_str(), wgs84.c_str())) << text;
            toWKT(keysWithWKT(text));
            EXPECT_FALSE(decoy.wasOpened()) << text;
        }
    }
    unsetenv("PROJ_NETWORK");
    EXPECT_EQ(toWKT(keysWithWKT(wgs84)).value_or("").substr(0, 15), "GEOGCS[\"WGS 84\"");
}

TEST(SpatialReferenceTest, UnderstandsWhatUsersType)
{
    const Decoy decoy;
    const auto isUTM32 = [](const std::string& text) {
        const auto wkt = fromUserInput(text.c_str());
        return wkt && isSame(wkt->c_str(), utm(32).c_str());
    };
    for (const char* text : {"EPSG:32632", "epsg:32632", "+proj=utm +zone=32 +datum=WGS84",
                             "http://www.opengis.net/def/crs/EPSG/0/32632"})
        EXPECT_TRUE(isUTM32(text)) << text;
    EXPECT_TRUE(isUTM32(utm(32)));
    const auto ofFile = fromUserInput(decoy.file.c_str());
    EXPECT_TRUE(ofFile && isSame(ofFile->c_str(), wgs84.c_str()));
    EXPECT_TRUE(decoy.wasOpened());
    for (const std::string& text :
         {std::string("EPSG:0"), std::string("nowhere"), std::string(), decoy.url, "/vsicurl/" + decoy.url,
          withPROJ4("+proj=longlat +ellps=bessel +nadgrids=" + decoy.file)}) {
        EXPECT_EQ(fromUserInput(text.c_str()), std::nullopt) << text;
        EXPECT_FALSE(decoy.wasOpened()) << text;
    }
}

TEST(SpatialReferenceTest, RefusesControlCharactersInWKT)
{
    const auto isValid = [](const std::string& text) { return pretty(text.c_str()) != text; };
    const std::string google = withPROJ4("+proj=merc +a=6378137 +b=6378137 +nadgrids=@null +wktext +no_defs");
    EXPECT_TRUE(isValid(google));
    EXPECT_NE(pretty(google.c_str()).find("+nadgrids=@null"), std::string::npos);
    EXPECT_TRUE(isValid(utm(32, "an \xc3\xa4")));
    EXPECT_FALSE(isValid(utm(32, "\x1f[31m")));
    EXPECT_FALSE(isValid(utm(32, "a\nline"))) << "a name of two lines";
    EXPECT_FALSE(isValid(utm(32, "\x7f")));
    EXPECT_TRUE(isValid("\r\n\t" + utm(32)));
    EXPECT_FALSE(isValid("\x01" + utm(32)));
    // Names that could be references to files.
    EXPECT_TRUE(isValid(utm(32, "grids=@null+ of @null")));
    for (const char* name : {"init=a", "grids=a", "grids=@null,a", "grids=@null grids=a", "file=a", "model=a",
                             "catalog=a", "PARAMETERFILE (", "ParameterFile["})
        EXPECT_FALSE(isValid(utm(32, name))) << name;
}

// Each translation follows one of other keys, which is kept.
TEST(SpatialReferenceTest, RestoresGridsFromKeys)
{
    // Its datum and all of its parameters are its own.
    std::string own = utm(13, "another grid");
    for (const auto& [text, other] :
         {std::pair("WGS_1984", "own"), std::pair("6378137", "6377000"), std::pair("298.257223563", "299.5"),
          std::pair("Greenwich\",0]", "own\",2.5]"), std::pair("northing\",0]", "northing\",-5000]")})
        own = replaced(own, text, other);
    // Keys that differ from the last ones only in numbers, and only in a name.
    const std::string moved = replaced(own, "-5000", "-4000"),
                      renamed = replaced(moved, "another", "changed");
    for (const std::string& grid : {utm(32), own, moved, renamed, wgs84, utm(32)}) {
        const auto keys = toGeoTIFF(grid.c_str());
        ASSERT_TRUE(keys) << grid;
        const std::string wkt = toWKT(*keys).value_or("none");
        EXPECT_TRUE(isSame(wkt.c_str(), grid.c_str())) << wkt;
        EXPECT_EQ(wkt.find("changed grid") != std::string::npos, grid == renamed) << wkt;
    }
    using Directory = std::vector<std::uint16_t>;
    const auto expected = toWKT({{1, 1, 0, 2, 1024, 0, 1, 1, 3072, 0, 1, 32613}, {}, ""});
    EXPECT_NE(expected, std::nullopt);
    // Ignored: values that are not there, and rows that are not counted or not there.
    for (const Directory& more :
         {Directory{3, 1026, 34737, 1, 9}, Directory{3, 2057, 34736, 1, 1}, Directory{3, 2057, 34736, 2, 0},
          Directory{2, 2048, 0, 1, 4267}, Directory{3}}) {
        Directory keys{1, 1, 0, more[0], 1024, 0, 1, 1, 3072, 0, 1, 32613};
        keys.insert(keys.end(), more.begin() + 1, more.end());
        EXPECT_EQ(toWKT({keys, {6370000}, "abc|"}), expected) << testing::PrintToString(more);
    }
    // One key is not valid: another version, a model of two values.
    for (const Directory& directory : {Directory{2, 1, 0, 2, 1024, 0, 1, 1, 3072, 0, 1, 32613},
                                       Directory{1, 1, 0, 1, 3072, 0, 2, 32613}, Directory{1, 1, 0}})
        EXPECT_EQ(toWKT({directory, {}, ""}), std::nullopt) << directory[0];
}

TEST(SpatialReferenceTest, ComparesSystemsAndNotTheirTexts)
{
    EXPECT_TRUE(isSame(utm(32).c_str(), utm(32, "another name").c_str()));
    EXPECT_TRUE(isSame(utm(32).c_str(), pretty(utm(32).c_str()).c_str()));
    EXPECT_FALSE(isSame(utm(32).c_str(), utm(33).c_str()));
    EXPECT_FALSE(isSame(utm(32).c_str(), wgs84.c_str()));
    // Invalid texts are the same only if they are equal.
    for (const char* text : {"", "no coordinate system", "EPSG:32632", "+proj=utm +zone=32"}) {
        EXPECT_TRUE(isSame(text, text)) << text;
        EXPECT_FALSE(isSame(text, (std::string(text) + ' ').c_str())) << text;
        EXPECT_FALSE(isSame(text, utm(32).c_str())) << text;
    }
}

} // namespace Quillmoran::SpatialReference
