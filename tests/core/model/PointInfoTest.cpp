#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include "support/Test.h"
#include <vxunpack/PointData.h>

namespace Quillmoran::Testing { namespace {

std::string namesOf(const PointInfo& layout)
{
    std::string names;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const char* name = layout.getChannel(i).getName();
        names += name ? name : "-";
    }
    return names;
}

TEST(DataTypeUtils, NamesTheTypesInAnyCase)
{
    const std::pair<unsigned, const char*> names[] = {
        {0x100, "UINT8"},  {0x101, "SINT8"},   {0x200, "UINT16"}, {0x201, "sint16"}, {0x400, "Uint32"},
        {0x401, "SINT32"}, {0x403, "Float32"}, {0x800, "UINT64"}, {0x801, "SINT64"}, {0x803, "FLOAT64"}};
    for (const auto& [value, name] : names) {
        EXPECT_EQ(DataTypeUtils::toDataType(name), value);
        EXPECT_STRCASEEQ(DataTypeUtils::toString(static_cast<DataType>(value)), name);
    }
    EXPECT_STREQ(DataTypeUtils::toString(INVALID), "INVALID");
    EXPECT_STREQ(DataTypeUtils::toString(static_cast<DataType>(0x402)), "UNKNOWN");
    for (const char* text : {static_cast<const char*>(nullptr), "", "INT8", "INVALID", "UINT", "UINT88"})
        EXPECT_EQ(DataTypeUtils::toDataType(text), INVALID);
}

TEST(ChannelInfo, HasAllBitsOfItsTypeByDefaultAndComparesAllProperties)
{
    ChannelInfo info = channel("a name that no object keeps inside", UINT8);
    for (const auto& [given, stored] : {std::pair{0, 16}, {-5, 16}, {12, 12}, {1, 1}}) {
        info.init(info.getName() + 1, UINT16, given, 0.0); // from the channel itself
        EXPECT_EQ(info.getBits(), stored);
    }
    EXPECT_STREQ(info.getName(), "me that no object keeps inside");

    const ChannelInfo red = channel("Red", UINT16, 0.5), nameless = channel(nullptr, UINT16);
    EXPECT_TRUE(red == channel("Red", UINT16, 0.5));
    for (const ChannelInfo& other :
         {channel("red", UINT16, 0.5), channel("Red", SINT16, 0.5), channel("Red", UINT16, 0.5, 15),
          channel("Red", UINT16, 0.25), channel("Red", UINT16, nan), nameless})
        EXPECT_FALSE(red == other || other == red);
    // A channel without a name equals only itself.
    EXPECT_TRUE(nameless == nameless);
    EXPECT_FALSE(nameless == channel(nullptr, UINT16));
}

TEST(PointInfo, CopiesChannelsByIndexOrNameUpToABadOne)
{
    const PointInfo source = layoutXYZ({channel("R", UINT16), channel("x", UINT8)});
    PointData block;
    block.init(source, 1);
    const std::size_t indices[] = {4, 0, 4, 5, 1};
    const char* const names[] = {"R", "Z", "x", "r", "Y"};
    const auto expectBoth = [&](const auto& from) {
        PointInfo chosen;
        chosen.init(from, indices, 3);
        EXPECT_EQ(namesOf(chosen), "xXx");
        chosen.init(from, names, 3);
        EXPECT_EQ(namesOf(chosen), "RZx");
        EXPECT_EQ(errorOf(40012, [&] { chosen.init(from, indices, 5); }), "bad channel index");
        EXPECT_EQ(errorOf(40012, [&] { chosen.init(from, names, 5); }), "bad channel name 'r'");
        EXPECT_EQ(namesOf(chosen), "RZx--");
        chosen.init(from);
        EXPECT_TRUE(chosen == source);
    };
    expectBoth(source);
    expectBoth(block);
}

TEST(PointInfo, HasValidXYZIfTheyAreDoubles)
{
    const ChannelInfo x = channel("X", FLOAT64), y = channel("Y", FLOAT64), z = channel("Z", FLOAT64);
    EXPECT_TRUE(layoutOf({z, channel("A", UINT8), y, x}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({x, y, channel("z", FLOAT64)}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({channel("X", FLOAT32), x, y, z}).hasValidXYZ()); // the first X counts
}

TEST(Bounds, ComputesTheFractionOfABoxInAnother)
{
    const Bounds::Range whole{0, 10}, none, all{-infinity, infinity};
    const std::tuple<Bounds::Range, Bounds::Range, double> cases[] = {
        {whole, {5, 20}, 0.5},        {whole, {-5, 2.5}, 0.25}, {whole, {4, 5}, 0.1}, {whole, all, 1},
        {whole, {10, 20}, 0},         {whole, {-5, 0}, 0},      {whole, {11, 12}, 0}, {all, whole, 1},
        {{3, 3}, {5, 6}, 1},          {whole, {50, 50}, 1},     {none, whole, 1},     {whole, none, 1},
        {{0, infinity}, {-2, -1}, 1},  // unbounded
        {{-1e308, 1e308}, {0, 1}, 1}}; // the width overflows
    for (const auto& [a, b, fraction] : cases) {
        SCOPED_TRACE(std::to_string(a.min) + " in " + std::to_string(b.min));
        EXPECT_EQ(Bounds::overlapFraction({a, whole, whole}, {b, whole, whole}), fraction);
        EXPECT_EQ(Bounds::overlapFraction({whole, a, whole}, {whole, b, {0, 5}}), fraction * 0.5);
        EXPECT_EQ(Bounds::overlapFraction({whole, whole, a}, {{5, 9}, {5, 99}, b}), 0.4 * 0.5 * fraction);
    }
}

TEST(PointInfo, KeepsBlocksOfWidePointsSmall)
{
    const PointInfo layout = layoutXYZ({channel("a", UINT64)}); // 32 bytes of 1 MiB
    EXPECT_EQ(layout.getBlockPoints(SIZE_MAX), 1u << 15);
    EXPECT_EQ(layout.getBlockPoints((1 << 15) - 1), (1u << 15) - 1);
    EXPECT_EQ(layout.getBlockPoints(0), 1u);
    EXPECT_EQ(PointInfo().getBlockPoints(7), 7u);
}

TEST(PointInfo, FindsTheFirstChannelWithANameAlsoByItsIndexOfNames)
{
    const PointInfo layout = layoutOf({channel(nullptr, UINT8), channel("b", UINT8), channel("a", UINT8),
                                       channel("b", SINT8), channel("", UINT8), channel("B", UINT8)});
    const NameIndex index(layout);
    for (const auto& [name, expected] : {std::pair{"b", 1}, {"a", 2}, {"", 4}, {"B", 5}}) {
        EXPECT_EQ(layout.getChannelIndex(name), expected);
        EXPECT_EQ(layout.getChannel(name), &layout.getChannel(static_cast<std::size_t>(expected)));
        EXPECT_EQ(index.find(name), static_cast<std::size_t>(expected));
    }
    for (const char* name : {"aa", "c", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(index.find(name) || layout.getChannelIndex(name) != -1);
    EXPECT_EQ(errorOf(40012, [&] { layout.getChannel(std::size_t{6}); }), "bad channel index");
}

TEST(ChannelNames, ResolvesNamesThatUsersType)
{
    const PointInfo layout = layoutOf(
        {channel("ClassId", UINT8), channel("GPSTime_Adjusted", FLOAT64), channel("scan_angle", SINT16),
         channel("ScanAngle", SINT8), channel("nir", UINT16), channel("Red", UINT16), channel("RED", UINT16),
         channel("ScanDir", UINT8), channel("mood", UINT8), channel("MOOD", UINT8)});
    std::istringstream pairs(
        "ClassId ClassId  classid ClassId  Classification ClassId  class ClassId  GpsTime GPSTime_Adjusted  "
        "gps_time GPSTime_Adjusted  scan_angle scan_angle  SCANANGLE ScanAngle  Scan-Angle-Rank ScanAngle  "
        "NIR nir  RED RED  red Red  scan_direction ScanDir  scandirectionflag ScanDir");
    for (std::string name, expected; pairs >> name >> expected;)
        EXPECT_STREQ(ChannelNames::require(name, layout).getName(), expected.c_str()) << name;
    for (const char* name : {"", "Mood", "Green", "Infrared", "X", "class1"})
        EXPECT_FALSE(ChannelNames::resolve(name, layout)) << name;
    const PointInfo times = layoutOf({channel("GPSTime_Adjusted", FLOAT64), channel("GPSTime", FLOAT64)});
    EXPECT_STREQ(ChannelNames::resolve("gps time", times)->getName(), "GPSTime");
    EXPECT_STREQ(ChannelNames::toPDAL("SourceId"), "PointSourceId");
    EXPECT_STREQ(ChannelNames::fromPDAL("scan_angle RANK"), "ScanAngle");
    EXPECT_EQ(ChannelNames::toPDAL("sourceId"), nullptr);
    EXPECT_EQ(ChannelNames::fromPDAL("SourceId"), nullptr);

    PointInfo many = layoutOf({channel(nullptr, UINT8)});
    for (int i = 0; i < 99; ++i)
        many.append(channel("Channel", UINT8));
    const std::string error =
        errorOf(40007, [&] { ChannelNames::require(std::string(300, 'n'), many, "It"); });
    const std::string head =
        "It does not have channel: '" + std::string(200, 'n') + "', its channels are , Channel, Channel, ";
    EXPECT_EQ(error.substr(0, head.size()), head);
    EXPECT_EQ(error.substr(error.size() - 12), "Channel, ...");
}

}} // namespace Quillmoran::Testing
