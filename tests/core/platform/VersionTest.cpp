#include "platform/Version.h"

#include "support/Test.h"
#include <vxunpack/FileIO.h>

namespace Quillmoran::Testing { namespace {

std::vector<std::uint8_t> preamble(int format, int major, std::size_t length = Version::preambleSize)
{
    std::vector<std::uint8_t> bytes{
        'v', 'x', 'i', 'l', static_cast<std::uint8_t>(format), static_cast<std::uint8_t>(major)};
    bytes.resize(length);
    return bytes;
}

TEST(Version, ReportsTheGenerationOfAFile)
{
    const int cases[][4] = {{0, 0, 0, 0}, {1, 0, 2, 1},   {2, 9, 2, 1}, {3, 3, 3, 1},    {3, 4, 4, 1},
                            {4, 7, 4, 0}, {3, 255, 4, 1}, {5, 0, 5, 0}, {255, 0, 255, 0}};
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    int generation;
    bool raster;
    for (const auto& [format, major, expected, isRaster] : cases) {
        file->pwrite(0, preamble(format, major).data(), Version::preambleSize);
        EXPECT_TRUE(Version::getVexilFileVersion(file->path(), generation, raster));
        EXPECT_EQ(std::pair(generation, raster), std::pair(expected, isRaster != 0))
            << format << '.' << major;
    }
    file->pwrite(3, "L", 1); // another magic
    EXPECT_FALSE(Version::getVexilFileVersion(file->path(), generation, raster));
    EXPECT_EQ(generation, 0);
}

TEST(Version, NeedsSixteenBytesAndAlwaysClosesTheFile)
{
    int generation;
    bool raster;
    for (const std::size_t length : {0u, 10u, 15u, 16u}) {
        const Scoped<ByteStore> bytesIO(ByteStore::create(preamble(4, 0, length)));
        const auto probe = [&] { Version::getVexilFileVersion(bytesIO.get(), generation, raster); };
        EXPECT_EQ(errorOf(40003, probe), length < 16 ? "bad read -- file header" : "nothing thrown");
        EXPECT_EQ(bytesIO->openCount(), 0);
    }
}

}} // namespace Quillmoran::Testing
