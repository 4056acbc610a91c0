#include "platform/Version.h"
#include "platform/FileIO.h"
#include "support/ByteStore.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using TestSupport::errorOf;

std::vector<std::uint8_t> preamble(std::uint8_t format, std::uint8_t major, std::size_t length = 16)
{
    std::vector<std::uint8_t> bytes{'v', 'x', 'i', 'l', format, major};
    bytes.resize(length);
    return bytes;
}

TEST(Version, TellsTheGenerationOfAFile)
{
    const struct
    {
        std::uint8_t format, major;
        int generation;
        bool raster;
    } cases[] = {{0, 0, 0, false}, {1, 0, 2, true}, {2, 9, 2, true},  {3, 3, 3, true},    {3, 4, 4, true},
                 {3, 255, 4, true}, {4, 0, 4, false}, {4, 7, 4, false}, {5, 0, 5, false}, {255, 0, 255, false}};
    for (const auto& each : cases) {
        const Scoped<ByteStore> store(ByteStore::create(preamble(each.format, each.major)));
        int generation = -1;
        bool raster = !each.raster;
        EXPECT_TRUE(Version::getVexilFileVersion(store.get(), generation, raster));
        EXPECT_EQ(generation, each.generation) << int{each.format} << '.' << int{each.major};
        EXPECT_EQ(raster, each.raster) << int{each.format} << '.' << int{each.major};
    }
}

TEST(Version, KnowsOtherFilesByTheirMagic)
{
    std::vector<std::uint8_t> bytes = preamble(4, 0);
    bytes[3] ^= 0x20;
    int generation = -1;
    bool raster = true;
    EXPECT_FALSE(Version::getVexilFileVersion(bytes.data(), generation, raster));
    EXPECT_EQ(generation, 0);
    EXPECT_FALSE(raster);
}

TEST(Version, NeedsSixteenBytesAndClosesTheStoreEitherWay)
{
    int generation;
    bool raster;
    for (const std::size_t length : {0u, 10u, 15u, 16u}) {
        const Scoped<ByteStore> store(ByteStore::create(preamble(4, 0, length)));
        const auto probe = [&] { Version::getVexilFileVersion(store.get(), generation, raster); };
        EXPECT_EQ(errorOf(40003, probe), length < 16 ? "bad read -- file header" : "nothing thrown");
        EXPECT_EQ(store->reads(), 1);
        EXPECT_EQ(store->openCount(), 0);
    }
}

TEST(Version, ProbesFilesByPath)
{
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    file->pwrite(0, preamble(3, 1).data(), 16);
    int generation = -1;
    bool raster = false;
    EXPECT_TRUE(Version::getVexilFileVersion(file->path(), generation, raster));
    EXPECT_EQ(generation, 3);
    EXPECT_EQ(errorOf(ENOENT, [&] { Version::getVexilFileVersion("no/such", generation, raster); }),
              "No such file or directory path = no/such");
}

} // namespace
} // namespace Quillmoran
