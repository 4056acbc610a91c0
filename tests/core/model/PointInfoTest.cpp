#include "model/PointInfo.h"
#include "model/Bounds.h"
#include "model/PointData.h"
#include "support/Errors.h"
#include "support/Layouts.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::channel;
using Testing::layoutOf;
using Testing::layoutXYZ;
using TestSupport::errorOf;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::string namesOf(const PointInfo& layout)
{
    std::string names;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const char* name = layout.getChannel(i).getName();
        names += std::string(i ? " " : "") + (name ? name : "-");
    }
    return names;
}

TEST(DataTypeUtils, TellsSizeKindAndName)
{
    const struct
    {
        unsigned value;
        std::size_t size;
        bool isFloat;
        const char *name, *otherCase;
    } cases[] = {{0x100, 1, false, "UINT8", "uint8"},   {0x101, 1, false, "SINT8", "sInt8"},
                 {0x200, 2, false, "UINT16", "Uint16"}, {0x201, 2, false, "SINT16", "sint16"},
                 {0x400, 4, false, "UINT32", "uint32"}, {0x401, 4, false, "SINT32", "sint32"},
                 {0x403, 4, true, "FLOAT32", "float32"}, {0x800, 8, false, "UINT64", "uint64"},
                 {0x801, 8, false, "SINT64", "sint64"}, {0x803, 8, true, "FLOAT64", "Float64"}};
    for (const auto& each : cases) {
        const auto type = static_cast<DataType>(each.value);
        EXPECT_EQ(DataTypeUtils::getSize(type), each.size) << each.name;
        EXPECT_EQ(DataTypeUtils::isFloat(type), each.isFloat) << each.name;
        EXPECT_STREQ(DataTypeUtils::toString(type), each.name);
        EXPECT_EQ(DataTypeUtils::toDataType(each.name), type);
        EXPECT_EQ(DataTypeUtils::toDataType(each.otherCase), type);
    }
}

TEST(DataTypeUtils, TakesWhatItDoesNotKnow)
{
    EXPECT_STREQ(DataTypeUtils::toString(INVALID), "INVALID");
    for (const unsigned value : {0x402u, 0x102u, 0x300u, 0xFFFFFFFFu}) {
        EXPECT_STREQ(DataTypeUtils::toString(static_cast<DataType>(value)), "UNKNOWN");
        EXPECT_FALSE(DataTypeUtils::isKnown(static_cast<DataType>(value)));
    }
    for (const char* text : {static_cast<const char*>(nullptr), "", "INT8", "INVALID", "UINT", "UINT88"})
        EXPECT_EQ(DataTypeUtils::toDataType(text), INVALID);
}

TEST(ChannelInfo, CountsAllBitsOfItsTypeUnlessTold)
{
    ChannelInfo info;
    for (const auto& [given, stored] : {std::pair{0, 16}, {-5, 16}, {12, 12}, {1, 1}, {40, 40}}) {
        info.init("Red", UINT16, given, 0.0);
        EXPECT_EQ(info.getBits(), stored);
    }
    info.init("@Skip", INVALID, 0, 0.0);
    EXPECT_EQ(info.getBits(), 0);
}

TEST(ChannelInfo, MayBeNamedAfterItself)
{
    ChannelInfo info = channel("a rather long name, not kept inside of the object", UINT8);
    info.init(info.getName(), UINT16, 3, 0.5);
    EXPECT_STREQ(info.getName(), "a rather long name, not kept inside of the object");
    info.init(info.getName() + 9, UINT16, 3, 0.5);
    EXPECT_STREQ(info.getName(), "long name, not kept inside of the object");
    info.init(nullptr, UINT16, 3, 0.5);
    EXPECT_EQ(info.getName(), nullptr);
}

TEST(ChannelInfo, EqualsWhatAgreesInEverything)
{
    const ChannelInfo red = channel("Red", UINT16, 0.5), nameless = channel(nullptr, UINT16);
    EXPECT_TRUE(red == channel("Red", UINT16, 0.5));
    EXPECT_FALSE(red == channel("red", UINT16, 0.5));
    EXPECT_FALSE(red == channel("Red", SINT16, 0.5));
    EXPECT_FALSE(red == channel("Red", UINT16, 0.25));
    ChannelInfo fewerBits;
    fewerBits.init("Red", UINT16, 15, 0.5);
    EXPECT_FALSE(red == fewerBits);
    EXPECT_FALSE(channel("Red", UINT16, nan) == channel("Red", UINT16, nan));
    // Channels without names are equal to themselves alone.
    EXPECT_TRUE(nameless == nameless);
    EXPECT_FALSE(nameless == channel(nullptr, UINT16));
    EXPECT_FALSE(nameless == red);
}

TEST(PointInfo, ChoosesChannelsByIndexOrName)
{
    const PointInfo source = layoutXYZ({channel("Red", UINT16), channel("x", UINT8)});
    PointData block;
    block.init(source, 1);
    const std::size_t indices[] = {4, 0, 4};
    const char* const names[] = {"Red", "Z", "x"};
    PointInfo chosen;
    chosen.init(source, indices, 3);
    EXPECT_EQ(namesOf(chosen), "x X x");
    chosen.init(block, indices, 2);
    EXPECT_EQ(namesOf(chosen), "x X");
    chosen.init(source, names, 3);
    EXPECT_EQ(namesOf(chosen), "Red Z x");
    EXPECT_TRUE(chosen.getChannel(std::size_t{0}) == source.getChannel(std::size_t{3}));
    chosen.init(block, names, 1);
    EXPECT_EQ(namesOf(chosen), "Red");
    chosen.init(block);
    EXPECT_TRUE(chosen == source);
}

TEST(PointInfo, KeepsTheChannelsBeforeABadOne)
{
    const PointInfo source = layoutXYZ();
    PointData block;
    block.init(source, 1);
    const std::size_t indices[] = {2, 3, 1};
    const char* const names[] = {"Y", "y", "X"};
    PointInfo chosen;
    EXPECT_EQ(errorOf(40012, [&] { chosen.init(source, indices, 3); }), "bad channel index");
    EXPECT_EQ(namesOf(chosen), "Z - -");
    EXPECT_EQ(errorOf(40012, [&] { chosen.init(source, names, 3); }), "bad channel name 'y'");
    EXPECT_EQ(namesOf(chosen), "Y - -");
    EXPECT_EQ(errorOf(40012, [&] { chosen.init(block, indices, 3); }), "bad channel index");
    EXPECT_EQ(errorOf(40012, [&] { chosen.init(block, names, 3); }), "bad channel name 'y'");
}

TEST(PointInfo, FindsTheFirstChannelOfAName)
{
    const PointInfo layout = layoutOf({channel(nullptr, UINT8), channel("a", UINT8), channel("A", SINT8),
                                       channel("A", UINT16)});
    EXPECT_EQ(layout.getChannelIndex("A"), 2);
    EXPECT_EQ(layout.getChannel("A")->getDataType(), SINT8);
    for (const char* missing : {static_cast<const char*>(nullptr), "", "b", "AA"}) {
        EXPECT_FALSE(layout.hasChannel(missing));
        EXPECT_EQ(layout.getChannel(missing), nullptr);
        EXPECT_EQ(layout.getChannelIndex(missing), -1);
    }
    for (const std::size_t index : {std::size_t{4}, SIZE_MAX})
        EXPECT_EQ(errorOf(40012, [&] { layout.getChannel(index); }), "bad channel index");
}

TEST(PointInfo, EqualsInOrder)
{
    EXPECT_TRUE(PointInfo() == PointInfo());
    EXPECT_TRUE(layoutXYZ() == layoutXYZ());
    EXPECT_FALSE(layoutXYZ() == layoutXYZ({channel("A", UINT8)}));
    EXPECT_FALSE(layoutOf({channel("A", UINT8), channel("B", UINT8)}) ==
                 layoutOf({channel("B", UINT8), channel("A", UINT8)}));
    PointInfo blank;
    blank.init(std::size_t{1});
    EXPECT_FALSE(blank == PointInfo(blank));
}

TEST(PointInfo, HasCoordinatesWhenThreeDoublesAreNamedSo)
{
    const ChannelInfo x = channel("X", FLOAT64), y = channel("Y", FLOAT64), z = channel("Z", FLOAT64);
    EXPECT_TRUE(layoutOf({z, channel("A", UINT8), y, x}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({x, y}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({x, y, channel("z", FLOAT64)}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({channel("X", FLOAT32), y, z}).hasValidXYZ());
    EXPECT_FALSE(layoutOf({channel("X", FLOAT32), x, y, z}).hasValidXYZ()); // the first X counts
    EXPECT_FALSE(PointInfo().hasValidXYZ());
}

TEST(Bounds, TellsTheShareOfABoxInsideAnother)
{
    const Bounds::Range whole{0, 10}, none, all{-infinity, infinity};
    const struct
    {
        Bounds::Range a, b;
        double fraction;
    } cases[] = {{whole, whole, 1},         {whole, {5, 20}, 0.5},   {whole, {-5, 2.5}, 0.25}, {whole, {4, 5}, 0.1},
                 {whole, {-1, 11}, 1},      {whole, {10, 20}, 0},    {whole, {-5, 0}, 0},      {whole, {11, 12}, 0},
                 {whole, all, 1},           {all, whole, 1},         {{0, infinity}, {-2, -1}, 1}, // unbounded
                 {{3, 3}, {50, 60}, 1},     {whole, {50, 50}, 1},    {none, whole, 1},         {whole, none, 1},
                 {{-1e308, 1e308}, {0, 1}, 1}}; // the width overflows
    for (const auto& each : cases) {
        const auto fraction = [&](const Bounds& a, const Bounds& b) { return Bounds::overlapFraction(a, b); };
        SCOPED_TRACE(std::to_string(each.a.min) + " in " + std::to_string(each.b.min));
        EXPECT_EQ(fraction({each.a, whole, whole}, {each.b, whole, whole}), each.fraction);
        EXPECT_EQ(fraction({whole, each.a, whole}, {whole, each.b, {0, 5}}), each.fraction * 0.5);
        EXPECT_EQ(fraction({whole, whole, each.a}, {{5, 9}, {5, 99}, each.b}), 0.4 * 0.5 * each.fraction);
    }
}

TEST(Bounds, HugeHoldsEverythingAndAFreshBoxNothing)
{
    const Bounds& huge = Bounds::Huge();
    EXPECT_EQ(&huge, &Bounds::Huge());
    EXPECT_TRUE(huge.contains(infinity, -infinity, 0));
    const Bounds fresh;
    EXPECT_FALSE(fresh.contains(0, 0, 0));
    EXPECT_FALSE(fresh.meets(huge));
    EXPECT_TRUE(huge.contains(fresh));
}

TEST(Bounds, GrowsToItsPointsAndIgnoresNaN)
{
    Bounds::Range range;
    range.grow(nan);
    EXPECT_EQ(range, Bounds::Range());
    range.grow(5.0);
    EXPECT_EQ(range, (Bounds::Range{5, 5}));
    range.grow(-1.0);
    range.grow(nan);
    range.grow(2.0);
    EXPECT_EQ(range, (Bounds::Range{-1, 5}));
}

} // namespace
} // namespace Quillmoran
