#include "common/bands/KernelConversion.h"

#include "support/Random.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::Random;

PointData makePoints(const char* name, DataType type, std::size_t count)
{
    PointInfo layout;
    for (const char* axis : {"X", "Y", "Z"}) {
        ChannelInfo channel;
        channel.init(axis, FLOAT64, 0, 0);
        layout.append(channel);
    }
    ChannelInfo channel;
    channel.init(name, type, 0, 0);
    layout.append(channel);
    PointData points;
    points.init(layout, count);
    return points;
}

template <class Float>
void expectSplitRoundTrip(DataType type, const char* fractionName, DataType partKernel)
{
    constexpr std::size_t count = 300;
    PointData points = makePoints("T", type, count);
    auto* samples = static_cast<Float*>(points.getChannel(3).getData());
    Random random(3);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t bits = random.next();
        std::memcpy(&samples[i], &bits, sizeof(Float)); // NaN payloads and infinities among them
    }
    samples[0] = Float(-0.0);
    const std::vector<Float> original(samples, samples + count);

    WaveletChannelInfo records[3];
    KernelConversion parts[3];
    KernelSamples kernels[3];
    const char* const names[3] = {fractionName, "@e|T", "@s|T"};
    const int bits[3] = {sizeof(Float) == 8 ? 63 : 31, 11, 1};
    for (int i = 0; i < 3; ++i) {
        records[i].init(names[i], type, bits[i], 10, 64, 0, 0);
        parts[i].setupConvert(records[i], 3);
        parts[i].convertToKernel(points, kernels[i], count);
    }
    KernelSamples wide[2]; // files may have exponents and signs in wider kernels
    for (int i = 0; i < 2; ++i) {
        wide[i].reserve(partKernel, count);
        ChannelData::convert(wide[i], 0, kernels[i + 1], 0, count);
    }
    std::memset(samples, 0, count * sizeof(Float));
    parts[0].mergeFromKernel(kernels[0], wide[0], wide[1], points, count);
    EXPECT_EQ(std::memcmp(samples, original.data(), count * sizeof(Float)), 0);
}

TEST(KernelConversion, MergesSplitChannelsBitForBit)
{
    for (const DataType kernel : {SINT16, SINT32, SINT64}) {
        expectSplitRoundTrip<double>(FLOAT64, "@d|T", kernel);
        expectSplitRoundTrip<float>(FLOAT32, "@f|T", kernel);
    }
}

TEST(KernelConversion, TruncatesPartsToTheirFields)
{
    PointData points = makePoints("T", FLOAT64, 1);
    WaveletChannelInfo record;
    record.init("@d|T", FLOAT64, 63, 10, 64, 0, 0);
    KernelConversion conversion;
    conversion.setupConvert(record, 3);
    KernelSamples fraction, exponent, sign;
    fraction.reserve(SINT64, 1);
    exponent.reserve(SINT16, 1);
    sign.reserve(SINT16, 1);
    *static_cast<std::int64_t*>(fraction.getData()) = -1;
    *static_cast<std::int16_t*>(exponent.getData()) = static_cast<std::int16_t>(0x7800 | 1023);
    *static_cast<std::int16_t*>(sign.getData()) = 2;
    conversion.mergeFromKernel(fraction, exponent, sign, points, 1);
    EXPECT_EQ(*static_cast<const double*>(points.getChannel(3).getData()), std::nextafter(2.0, 0.0));
}

TEST(KernelConversion, QuantizesAndDequantizes)
{
    PointData points = makePoints("T", FLOAT32, 3);
    WaveletChannelInfo record;
    record.init("X", FLOAT64, 20, 1, 64, 100.0, 0.25);
    KernelConversion conversion;
    conversion.setupConvert(record, 0);
    KernelSamples samples;
    double* x = points.getX();
    x[0] = 102.0;
    x[1] = 99.875; // halves round up
    x[2] = 100.125;
    conversion.convertToKernel(points, samples, 3);
    const auto* kernel = static_cast<const std::int32_t*>(samples.getData());
    EXPECT_EQ(kernel[0], 8);
    EXPECT_EQ(kernel[1], 0);
    EXPECT_EQ(kernel[2], 1);
    conversion.convertFromKernel(samples, points, 3);
    EXPECT_EQ(x[0], 102.0);
    EXPECT_EQ(x[2], 100.25);
}

} // namespace
} // namespace Quillmoran
