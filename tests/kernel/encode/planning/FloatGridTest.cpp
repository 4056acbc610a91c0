#include "encode/planning/FloatGrid.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

template <class Float>
std::vector<FloatGrid> findGrids(const std::vector<Float>& values,
                                 const std::vector<FloatGrid>& declared = {}, bool isCoordinate = false)
{
    ChannelData column;
    column.init(channel("T", sizeof(Float) == 4 ? FLOAT32 : FLOAT64), values.size());
    std::copy(values.begin(), values.end(), static_cast<Float*>(column.getData()));
    return FloatGrid::find(column, values.size(), declared, isCoordinate);
}

// The number that a decimal with this number of places is parsed as.
double decimal(std::int64_t whole, int places)
{
    return std::strtod((std::to_string(whole) + "e-" + std::to_string(places)).c_str(), nullptr);
}

TEST(FloatGrid, FindsTheScaleOfDecimalsFarFromZero)
{
    Random random(1);
    std::vector<double> values;
    for (int i = 0; i < 2000; ++i)
        values.push_back(decimal(50000000 + random.between(-30000, 30000), 2));
    const auto grids = findGrids(values);
    ASSERT_FALSE(grids.empty());
    EXPECT_EQ(grids[0].scale, 0.01);
    EXPECT_EQ(findGrids(values, {}, true)[0].scale, 0.01);
    EXPECT_EQ(findGrids(values, {{0.01, nan}}).back().offset, std::floor(values[0]));
}

TEST(FloatGrid, FindsPartsOfATenthWhereTheTenthFails)
{
    // Heights: hundredths below a thousand, where a product with 0.01 often differs from the decimal.
    Random random(4);
    std::vector<double> values;
    for (int i = 0; i < 5000; ++i)
        values.push_back(decimal(random.between(40000, 52000), 2));
    const auto grids = findGrids(values, {}, true);
    ASSERT_FALSE(grids.empty());
    EXPECT_GT(grids[0].scale, 0.01 / 256);
    EXPECT_EQ(0.01 / grids[0].scale, std::round(0.01 / grids[0].scale));
}

TEST(FloatGrid, FindsTimesWithAnOddOrigin)
{
    std::vector<double> values;
    for (int i = 0; i < 500; ++i)
        values.push_back(245379.39843682514 + i * std::ldexp(1, -14));
    const auto grids = findGrids(values);
    ASSERT_FALSE(grids.empty());
    EXPECT_EQ(grids[0].scale, std::ldexp(1, -14));
    EXPECT_EQ(grids[0].offset, values[0]);
    for (const FloatGrid& grid : findGrids(values, {}, true)) // coordinates are whole multiples
        EXPECT_NE(grid.offset, values[0]);
}

TEST(FloatGrid, PrefersTheDeclaredScale)
{
    const std::vector<double> values = {1.0, 2.0, 7.0};
    const auto grids = findGrids(values, {{0.25, 1.0}, {0.5, 0.0}});
    ASSERT_EQ(grids.size(), 1u);
    EXPECT_EQ(grids[0].scale, 0.25);
    EXPECT_EQ(findGrids(values, {{0.3, 0.0}})[0].scale, 1.0); // which does not represent them
}

TEST(FloatGrid, AvoidsScalesThatMisleadReaders)
{
    // Box queries are widened by half of the scale of the coordinates.
    const std::vector<double> coarse = {1024, 2048, 0, 4096};
    EXPECT_EQ(findGrids(coarse)[0].scale, 1024.0);
    EXPECT_LE(findGrids(coarse, {}, true)[0].scale, 0.01);
    // Text shows two or three decimals of hundredths.
    std::vector<double> values;
    for (int i = 0; i < 100; ++i)
        values.push_back(0.1234567 + i * 0.01);
    for (const FloatGrid& grid : findGrids(values))
        EXPECT_NE(grid.scale, 0.01);
    // Neither of these is the number that its three decimals are parsed as.
    for (const FloatGrid& grid : findGrids(std::vector<double>{3 * 0.001 * 1e5 + 0.001, 100000.7 - 1e5}))
        EXPECT_NE(grid.decimals, 1e3);
}

TEST(FloatGrid, IsExactBitForBit)
{
    EXPECT_TRUE(findGrids(std::vector<double>{1.5, 0.1 + 1e-13, -1e-9}).empty());
    for (const double odd : {nan, infinity, -infinity, -0.0, 1e300}) {
        EXPECT_TRUE(findGrids(std::vector<double>{1.5, 2.5, odd, -1e-9}).empty()) << odd;
        EXPECT_TRUE(findGrids(std::vector<float>{1.5f, 2.5f, static_cast<float>(odd), -1e-9f}).empty())
            << odd;
    }
}

TEST(FloatGrid, IsRejectedByASampleOffTheGrid)
{
    ChannelData column;
    column.init(channel("T", FLOAT32), 3);
    float* values = static_cast<float*>(column.getData());
    values[0] = -2.5f;
    values[1] = 7.0f;
    values[2] = 0.25f;
    FloatGrid grid{0.5, 0};
    EXPECT_TRUE(grid.hold(column, 2));
    EXPECT_EQ(grid.low, -5);
    EXPECT_EQ(grid.high, 14);
    EXPECT_FALSE(grid.hold(column, 3));
}

}} // namespace Quillmoran::Testing
