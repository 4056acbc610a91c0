// The public interface: opening, reading and writing clouds by name.
#include "support/Errors.h"
#include "support/TemporaryDirectory.h"
#include <vxunpack/vxunpack.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <vector>

using namespace Quillmoran::Testing;

namespace {

constexpr std::size_t numPoints = 100000; // more than one block

// A row of points along X with a column of every sample type.
struct Row
{
    template <class T>
    static std::vector<T> samples(T factor)
    {
        std::vector<T> values(numPoints);
        for (std::size_t i = 0; i < numPoints; ++i)
            values[i] = static_cast<T>(static_cast<T>(i) * factor);
        return values;
    }

    std::vector<double> x = samples(0.5), y = samples(0.0), z = samples(-0.25);
    std::vector<std::uint8_t> classId = samples<std::uint8_t>(1);
    std::vector<std::int16_t> scanAngle = samples<std::int16_t>(3);
    std::vector<std::uint64_t> id = samples<std::uint64_t>(1ull << 40);
    std::vector<float> amplitude = samples(0.1f);

    vx::Cloud cloud() const
    {
        return vx::Cloud::fromColumns({{"X", x, 0.5},
                                       {"Y", y, 0.5},
                                       {"Z", z, 0.25},
                                       {"ClassId", classId},
                                       {"ScanAngle", scanAngle},
                                       {"Id", id},
                                       {"Amplitude", amplitude}});
    }
};

template <class T>
void expectColumn(const vx::Cloud& cloud, const char* name, const std::vector<T>& expected)
{
    std::vector<T> read;
    for (const vx::Block& block : cloud.read({.channels = {name}})) {
        const auto column = block.column<T>(name);
        read.insert(read.end(), column.begin(), column.end());
    }
    EXPECT_EQ(read, expected) << name;
}

std::size_t countPoints(vx::Reader reader)
{
    std::size_t count = 0;
    for (const vx::Block& block : reader)
        count += block.size();
    return count;
}

} // namespace

TEST(Cloud, ColumnsSurviveFilesOfEveryKind)
{
    const TemporaryDirectory directory;
    const Row row;
    const std::string packed = directory / "row.vxl";
    ASSERT_EQ(vx::write(packed, row.cloud(), {.threads = 2}), numPoints);
    const vx::Cloud cloud = vx::open(packed);
    EXPECT_EQ(cloud.numPoints(), numPoints);
    EXPECT_EQ(cloud.channels().size(), 7u);
    EXPECT_EQ(cloud.bounds().xMax, 0.5 * (numPoints - 1));
    expectColumn(cloud, "X", row.x);
    expectColumn(cloud, "Z", row.z);
    expectColumn(cloud, "Classification", row.classId); // the name in LAS
    expectColumn(cloud, "ScanAngle", row.scanAngle);
    expectColumn(cloud, "Id", row.id);
    expectColumn(cloud, "Amplitude", row.amplitude);

    // The format follows from the ending, or from the options; LAS drops channels and says so.
    std::vector<std::string> warnings;
    const auto warning = [&](const std::string& text) { warnings.push_back(text); };
    vx::write(directory / "row.las", cloud, {.warning = warning});
    EXPECT_EQ(warnings.size(), 3u); // Id, Amplitude, and the unit of the scan angles
    expectColumn(vx::open(directory / "row.las"), "X", row.x);
    vx::write(directory / "row.dat", cloud, {.query = {.channels = {"ClassId"}}, .format = "laz"});
    std::filesystem::rename(directory / "row.dat", directory / "row.laz");
    expectColumn(vx::open(directory / "row.laz"), "ClassId", row.classId);
    vx::write(directory / "row.txt", cloud, {.query = {.channels = {"Amplitude"}}});
    EXPECT_EQ(vx::write("null", vx::open(directory / "row.txt",
                                         {.textFormat = "X,Y,Z,Amplitude:FLOAT32", .skipLines = 1})),
              numPoints);
}

TEST(Cloud, QueriesChooseBoxFractionAndChannels)
{
    const TemporaryDirectory directory;
    const Row row;
    vx::write(directory / "a.vxl", row.cloud());
    vx::write(directory / "b.vxl", row.cloud(), {.query = {.box = {.xMax = 4.5}}});
    for (const vx::Cloud& cloud : {row.cloud(), vx::open(directory / "a.vxl")}) {
        EXPECT_EQ(countPoints(cloud.read({.box = {10, 19.5}})), 20u);
        EXPECT_EQ(countPoints(cloud.read({.fraction = 0.25})), numPoints / 4);
        for (const vx::Block& block : cloud.read({.channels = {"ClassId"}}))
            EXPECT_EQ(block.data().getNumChannels(), 4u); // with X, Y and Z
    }
    EXPECT_EQ(vx::open({directory / "a.vxl", directory / "b.vxl"}).numPoints(), numPoints + 10);
    EXPECT_EQ(vx::open(directory.path()).numPoints(), numPoints + 10);
}

TEST(Cloud, GeneratedPointsAreMadeWhenTheyAreRead)
{
    const TemporaryDirectory directory;
    const auto fill = [](std::uint64_t first, const vx::MutableBlock& block) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            block.x()[i] = static_cast<double>(first + i);
            block.y()[i] = block.z()[i] = 0;
            block.column<std::uint16_t>("Intensity")[i] = static_cast<std::uint16_t>(first + i);
        }
    };
    const vx::Cloud cloud =
        vx::Cloud::generate(numPoints, {{"X"}, {"Y"}, {"Z"}, {"Intensity", Quillmoran::UINT16}}, fill);
    EXPECT_EQ(vx::write(directory / "made.vxl", cloud), numPoints);
    double sum = 0;
    for (const vx::Block& block : vx::open(directory / "made.vxl").read())
        for (std::size_t i = 0; i < block.size(); ++i)
            sum += block.x()[i] - block.column<std::uint16_t>("Intensity")[i];
    EXPECT_EQ(sum, 65536.0 * (numPoints - 65536)); // what 16 bits cannot hold
}

namespace {

template <class Call>
vx::ErrorCode codeOf(Call call)
{
    try {
        call();
    } catch (const vx::Error& error) {
        return error.code();
    }
    return {};
}

} // namespace

TEST(Cloud, MistakesAreErrors)
{
    using vx::ErrorCode;
    const TemporaryDirectory directory;
    const Row row;
    const vx::Cloud cloud = row.cloud();
    EXPECT_EQ(codeOf([&] { cloud.read({.channels = {"Colour"}}); }), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] { cloud.read({.box = {1, 0}}); }), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] { cloud.read({.fraction = 0}); }), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] {
                  for (const vx::Block& block : cloud.read())
                      block.column<float>("ClassId");
              }),
              ErrorCode::ChannelType);
    const std::vector<double> two(2);
    EXPECT_EQ(codeOf([&] {
                  vx::Cloud::fromColumns({{"X", row.x}, {"Y", row.y}, {"Z", two}});
              }),
              ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] {
                  vx::Cloud::fromColumns({{"X", row.x}, {"Y", row.y}});
              }),
              ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] { vx::open(std::vector<std::string>()); }), ErrorCode::InvalidArgument);
    EXPECT_EQ(codeOf([&] { vx::open(directory / "absent.vxl").read(); }), ErrorCode{ENOENT});
    EXPECT_EQ(codeOf([&] { vx::write(directory / "out.index", cloud); }), ErrorCode::General);
    EXPECT_EQ(codeOf([&] { vx::write(directory / "out.vlx", cloud); }), ErrorCode::InvalidArgument);
    const TemporaryDirectory inputs;
    vx::write(inputs / "in.vxl", cloud);
    EXPECT_EQ(codeOf([&] { vx::write(inputs / "in.vxl", vx::open(inputs / "in.vxl")); }), ErrorCode::General);
    EXPECT_EQ(codeOf([&] { vx::write(directory / "out", cloud, {.format = "lazz"}); }),
              ErrorCode::InvalidArgument);

    // Cancelled at the first report; the output is absent.
    EXPECT_EQ(
        codeOf([&] { vx::write(directory / "out.vxl", cloud, {.progress = [](double) { return false; }}); }),
        ErrorCode::Cancelled);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(PublicClasses, MissingArgumentsAndCallsBeforeInitAreErrors)
{
    using namespace Quillmoran;
    const Row row;
    const vx::Cloud cloud = row.cloud();
    const Scoped<VX7PointReader> reader(VX7PointReader::create());
    const Scoped<VX7PointWriter> packer(VX7PointWriter::create());
    const Scoped<LASPointWriter> las(LASPointWriter::create());
    const Scoped<MosaicFilter> mosaic(MosaicFilter::create());
    const Scoped<QuantizeFilter> rounded(QuantizeFilter::create());
    const Scoped<PersistentPointSourceWriter> index(PersistentPointSourceWriter::create());
    const Scoped<PersistentPointSourceManager> tiles(PersistentPointSourceManager::create());
    const std::function<void()> calls[] = {
        [&] { reader->init(static_cast<IO*>(nullptr)); },
        [&] { reader->init(static_cast<const char*>(nullptr)); },
        [&] { packer->init(&cloud.source(), static_cast<const char*>(nullptr)); },
        [&] { packer->init(&cloud.source(), static_cast<IO*>(nullptr)); },
        [&] { las->init(&cloud.source(), nullptr, -1); },
        [&] { mosaic->init(nullptr); },
        [&] { rounded->init(&cloud.source(), nullptr); },
        [&] { index->add("a.las"); },
        [&] { index->write("a.index"); },
        [&] { index->update(nullptr); },
        [&] { tiles->init("a.index", nullptr); },
        [&] { SimpleFileOpener::getPointSourceType(static_cast<const char*>(nullptr)); },
    };
    for (std::size_t i = 0; i < std::size(calls); ++i)
        EXPECT_EQ(codeOf(calls[i]), ErrorCode::InvalidArgument) << "call " << i;
}
