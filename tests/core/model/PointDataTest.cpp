#include <vxunpack/PointData.h>

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

template <class T>
constexpr DataType typeOf = static_cast<DataType>(sizeof(T) << 8 | (std::is_signed_v<T> ? 1 : 0) |
                                                  (std::is_floating_point_v<T> ? 2 : 0));

template <class T>
struct Samples : ChannelData
{
    explicit Samples(const std::vector<T>& values)
    {
        init(channel("A", typeOf<T>), values.size());
        std::copy(values.begin(), values.end(), static_cast<T*>(getData()));
    }
    std::vector<T> values() const
    {
        const auto* first = static_cast<const T*>(getData());
        return {first, first + getNumSamples()};
    }
};

template <class D, class S>
std::vector<D> converted(const std::vector<S>& values)
{
    Samples<D> dst{std::vector<D>(values.size())};
    ChannelData::convert(dst, 0, Samples<S>(values), 0, values.size());
    return dst.values();
}

template <class D, class S>
D scaled(S value, double offset = 0, double scale = 1)
{
    Samples<D> dst(std::vector<D>(1));
    ChannelData::convert(dst, 0, Samples<S>({value}), 0, offset, scale, 1);
    return dst.values()[0];
}

template <class Visit>
void forIntegers(Visit visit)
{
    for (const DataType type : {UINT8, SINT8, UINT16, SINT16, UINT32, SINT32, UINT64, SINT64})
        visitDataType(type, [&](auto zero) {
            if constexpr (std::is_integral_v<decltype(zero)>)
                visit(zero);
        });
}

TEST(ChannelData, ChecksBothRangesFromTheOffsetOn)
{
    Samples<std::int32_t> dst({0, 1, 2, 3}), src({0, 4, 5});
    const Samples<double> reals({0, 0});
    dst.setOffset(1);
    src.setOffset(1);
    const auto expectRefused = [&](std::size_t to, std::size_t from, std::size_t count, const char* error) {
        EXPECT_EQ(errorOf(40007, [&] { ChannelData::convert(dst, to, src, from, count); }), error);
        // The messages of the others have "dst" for both sides.
        EXPECT_EQ(errorOf(40007, [&] { ChannelData::copy(dst, to, src, from, count); }), "dst too small");
        EXPECT_EQ(errorOf(40007, [&] { ChannelData::convert(dst, to, reals, from, 0, 1, count); }),
                  "dst too small");
    };
    for (const auto& [to, count] :
         {std::pair{std::size_t{1}, std::size_t{3}}, {4, 0}, {SIZE_MAX, 2}, {1, SIZE_MAX}})
        expectRefused(to, 0, count, "dst too small");
    for (const auto& [from, count] :
         {std::pair{std::size_t{0}, std::size_t{3}}, {3, 0}, {1, 2}, {SIZE_MAX, 2}})
        expectRefused(0, from, count, "src too small");
    ChannelData::copy(dst, 3, src, 2, 0);
    ChannelData::copy(dst, 1, src, 0, 2);
    ChannelData::copy(dst, 0, dst, 1, 2); // the same channel
    EXPECT_EQ(dst.values(), (std::vector<std::int32_t>{4, 5, 5}));
}

// Extends to 64 bits by sign or zero, then keeps the low bytes.
TEST(ChannelData, NarrowsIntegersByTheirLowBytesAndExtendsBySign)
{
    forIntegers([](auto s) {
        using S = decltype(s);
        std::vector<S> values{std::numeric_limits<S>::min(), std::numeric_limits<S>::max()};
        for (const int value : {0, 1, -1, -2, 127, 128, 255, 300, 32767, 65535, -40000, 0x12345678})
            values.push_back(static_cast<S>(value));
        forIntegers([&](auto d) {
            const auto results = converted<decltype(d)>(values);
            for (std::size_t i = 0; i < values.size(); ++i) {
                auto extended = static_cast<std::uint64_t>(values[i]);
                if (values[i] < 0)
                    extended |= ~static_cast<std::uint64_t>(std::numeric_limits<S>::max());
                decltype(d) expected;
                std::memcpy(&expected, &extended, sizeof expected); // little-endian
                EXPECT_EQ(results[i], expected) << +values[i] << " of " << typeOf<S> << " to " << sizeof d;
            }
        });
    });
}

TEST(ChannelData, RoundsDoublesToTheNearestSingle)
{
    EXPECT_EQ(converted<float>(std::vector{1 + 0x1p-24, 1 + 0x1.8p-23, 0.1, -1e300, 1e-300, infinity}),
              (std::vector{1.0f, 1 + 0x1p-22f, 0.1f, -HUGE_VALF, 0.0f, HUGE_VALF}));
    EXPECT_EQ(converted<double>(std::vector{0.1f, 0x1p-149f}), (std::vector{0x1.99999ap-4, 0x1p-149}));
}

TEST(ChannelData, QuantizesHalvesUpwards)
{
    forIntegers([](auto d) {
        using D = decltype(d);
        EXPECT_EQ(scaled<D>(0.25, 0, 0.5), D{1});
        EXPECT_EQ(scaled<D>(-0.25, 0, 0.5), D{0});
        EXPECT_EQ(scaled<D>(102.124, 100, 0.25), D{8});
        EXPECT_EQ(scaled<D>(102.125f, 100, 0.25), D{9});
        EXPECT_EQ(scaled<D>(-0.75, 0, 0.5), static_cast<D>(-1));
    });
    // 0.1f is 0.100000001490116...; in single precision the quotient would be 100000000.
    EXPECT_EQ(scaled<std::int32_t>(0.1f, 0, 1e-9), 100000001);
    EXPECT_EQ(scaled<std::int32_t>(-0x1p31), INT32_MIN);
}

// The conversion of the processor gives its smallest integer for numbers out of range.
TEST(ChannelData, WrapsQuantizedValuesOrGivesTheSmallestInteger)
{
    EXPECT_EQ(scaled<std::uint8_t>(300.0) + scaled<std::uint8_t>(0x1p31 + 5), 44);
    EXPECT_EQ(scaled<std::int8_t>(200.0), -56);
    EXPECT_EQ(scaled<std::uint16_t>(-1.0), 65535);
    EXPECT_EQ(scaled<std::int16_t>(98304.0), -32768);
    EXPECT_EQ(scaled<std::uint32_t>(-1.0), UINT32_MAX);
    EXPECT_EQ(scaled<std::uint32_t>(0x1p32 + 5), 5u);
    EXPECT_EQ(scaled<std::uint64_t>(-1.0), UINT64_MAX);
    for (const double value : {0x1p63 - 1024, 0x1p63, 0x1p64 - 2048})
        EXPECT_EQ(scaled<std::uint64_t>(value), static_cast<std::uint64_t>(value));
    EXPECT_EQ(scaled<std::int64_t>(0x1p63), INT64_MIN);
    for (const double value : {nan, infinity, -infinity, 1e30, -1e30}) {
        EXPECT_EQ(scaled<std::uint8_t>(value), 0) << value;
        EXPECT_EQ(scaled<std::int32_t>(value), INT32_MIN) << value;
        EXPECT_EQ(scaled<std::uint32_t>(value), 0u) << value;
        EXPECT_EQ(scaled<std::int64_t>(value), INT64_MIN) << value;
        EXPECT_EQ(scaled<std::uint64_t>(value), std::uint64_t{1} << 63) << value;
    }
}

TEST(ChannelData, DequantizesFromTheExactInteger)
{
    forIntegers([](auto s) {
        using S = decltype(s);
        EXPECT_EQ((scaled<double, S>(8, 100, 0.25)), 102.0);
        EXPECT_EQ((scaled<float, S>(8, 100, 0.25)), 102.0f);
        EXPECT_EQ((scaled<double, S>(std::numeric_limits<S>::max(), 0.5, 2)),
                  std::ldexp(1.0, std::numeric_limits<S>::digits + 1) - (sizeof(S) < 8 ? 1.5 : 0));
    });
    EXPECT_EQ(scaled<double>(INT64_MIN), -0x1p63);
}

// Points numbered from `first` in X and, modulo 256 and 65536, in channels of other sizes.
void fill(PointData& block, std::size_t count, std::size_t first)
{
    block.init(layoutXYZ({channel("A", UINT8), channel("B", UINT16)}), count);
    for (std::size_t i = 0; i < count; ++i) {
        block.getX()[i] = static_cast<double>(first + i);
        block.getY()[i] = block.getZ()[i] = 0;
        static_cast<std::uint8_t*>(block.getChannel("A")->getData())[i] =
            static_cast<std::uint8_t>(first + i);
        static_cast<std::uint16_t*>(block.getChannel("B")->getData())[i] =
            static_cast<std::uint16_t>(first + i);
    }
}

using Indices = std::vector<std::size_t>;

// The numbers of the points of a block after its offset.
Indices numbersOf(const PointData& block)
{
    const Indices numbers(block.getX(), block.getX() + block.getNumSamples());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(static_cast<const std::uint8_t*>(block.getChannel("A")->getData())[i], numbers[i] & 0xFF);
        EXPECT_EQ(static_cast<const std::uint16_t*>(block.getChannel("B")->getData())[i],
                  numbers[i] & 0xFFFF);
    }
    return numbers;
}

TEST(PointData, MovesAllChannelsAndCoordinatesByItsOffset)
{
    PointData block, source;
    fill(block, 5, 300);
    fill(source, 4, 1000);
    block.setOffset(2);
    source.setOffset(1);
    EXPECT_EQ(numbersOf(block), (Indices{302, 303, 304}));
    PointData::copy(block, 1, source, 0, 2);
    EXPECT_EQ(numbersOf(block), (Indices{302, 1001, 1002}));
    block.setOffset(4);
    EXPECT_EQ(numbersOf(block), (Indices{1002}));
    EXPECT_EQ(block.getZ() - block.getY(),
              static_cast<const double*>(block.getChannel("Z")->getData()) - block.getY());
    EXPECT_EQ(errorOf(40007, [&] { block.setOffset(5); }), "offset too large");
    EXPECT_EQ(errorOf(40007, [&] { PointData::copy(block, 0, source, 0, 2); }), "dst too small");
    fill(block, 2, 70000);
    EXPECT_EQ(numbersOf(block), (Indices{70000, 70001}));
    block.setOffset(1);
    block.resize(7);
    EXPECT_EQ(block.getNumSamples() + block.getChannel("A")->getNumSamples(), 14u);
    EXPECT_EQ(block.getY(), block.getChannel("Y")->getData());
    for (const PointInfo& other : {layoutXYZ({channel("A", SINT8), channel("B", UINT16)}), layoutXYZ()}) {
        block.init(other, 4);
        EXPECT_EQ(errorOf(40007, [&] { PointData::merge(block, 4, source, 3); }),
                  other.getNumChannels() == 5 ? "datatype are not the same"
                                              : "number of channels must the same");
    }
    EXPECT_EQ(errorOf(40007, [&] { block.init(PointInfo(), 4); }), "must have x, y, and z channels");
    EXPECT_EQ(block.getNumSamples() + block.getNumChannels(), 0u);
}

// Merges the batches in order into a block of points numbered from 1000000.
Indices merged(std::size_t capacity, const Indices& batches)
{
    PointData held, offered;
    fill(held, capacity, 1000000);
    std::size_t seen = 0;
    for (const std::size_t count : batches) {
        fill(offered, count + 1, seen); // the last one is not offered
        PointData::merge(held, seen, offered, count);
        seen += count;
    }
    return numbersOf(held);
}

TEST(PointDataMerge, FillsThenOverwritesAtAnEvenStride)
{
    EXPECT_EQ(merged(6, {4}), (Indices{0, 1, 2, 3, 1000004, 1000005}));
    EXPECT_EQ(merged(10, {10, 10}), (Indices{0, 10, 2, 12, 4, 14, 6, 16, 8, 18}));
    EXPECT_EQ(merged(4, {2, 6}), (Indices{0, 4, 2, 6})) << "a batch that fills and overwrites";
    EXPECT_EQ(merged(4, {4, 4, 4}), (Indices{0, 4, 9, 6})) << "one whose first point is not selected";
    EXPECT_EQ(merged(4, {4, 3}), (Indices{0, 5, 2, 3}));
    EXPECT_EQ(merged(0, {5, 7}), Indices());
}

TEST(PointDataMerge, HoldsAnEvenSampleOfAllBatches)
{
    Random random(11);
    for (int round = 0; round < 300; ++round) {
        constexpr std::size_t capacity = 64;
        Indices batches(2 + random.below(12));
        std::size_t total = 0;
        for (std::size_t& count : batches)
            total += count = capacity + random.below(random.chance(0.2) ? 900 : 150);
        Indices held = merged(capacity, batches);
        std::sort(held.begin(), held.end());
        ASSERT_EQ(std::adjacent_find(held.begin(), held.end()), held.end()) << "round " << round;
        ASSERT_LT(held.back(), total);
        for (std::size_t i = 0; i < capacity; ++i)
            ASSERT_NEAR(static_cast<double>(held[i]) / static_cast<double>(total),
                        (static_cast<double>(i) + 0.5) / capacity, 0.2)
                << "round " << round;
    }
}

}} // namespace Quillmoran::Testing
