#include "platform/Version.h"

#include "support/Test.h"
#include <vxunpack/FileIO.h>

namespace Quillmoran::Testing { namespace {

TEST(Version, ReportsTheGenerationOfAFile)
{
    const int cases[][4] = {{0, 0, 0, 0}, {1, 0, 2, 1},   {2, 9, 2, 1}, {3, 3, 3, 1},    {3, 4, 4, 1},
                            {4, 7, 4, 0}, {3, 255, 4, 1}, {5, 0, 5, 0}, {255, 0, 255, 0}};
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    int generation;
    bool raster;
    for (const auto& [format, major, expected, isRaster] : cases) {
        std::string preamble{'v', 'x', 'i', 'l', static_cast<char>(format), static_cast<char>(major)};
        preamble.resize(Version::preambleSize);
        file->pwrite(0, preamble.data(), preamble.size());
        EXPECT_TRUE(Version::getVexilFileVersion(file->path(), generation, raster));
        EXPECT_EQ(std::pair(generation, raster), std::pair(expected, isRaster != 0))
            << format << '.' << major;
    }
    file->pwrite(3, "L", 1); // another magic
    EXPECT_FALSE(Version::getVexilFileVersion(file->path(), generation, raster));
    EXPECT_EQ(generation, 0);
    const auto bytes = ByteStore::make(std::string(Version::preambleSize - 1, 'v'));
    EXPECT_EQ(failureOf([&] { Version::getVexilFileVersion(bytes.get(), generation, raster); }),
              "40003 bad read -- file header");
    EXPECT_EQ(bytes->openCount(), 0);
}

}} // namespace Quillmoran::Testing
