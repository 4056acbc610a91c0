#include "common/bands/KernelConversion.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

PointData makePoints(std::size_t count)
{
    PointData points;
    points.init(layoutXYZ({channel("T", FLOAT64)}), count);
    return points;
}

TEST(KernelConversion, TruncatesPartsToTheirFields)
{
    PointData points = makePoints(1);
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
    PointData points = makePoints(4);
    WaveletChannelInfo record;
    record.init("X", FLOAT64, 20, 1, 64, 100.0, 0.25);
    KernelConversion conversion;
    conversion.setupConvert(record, 0);
    KernelSamples samples;
    double* x = points.getX();
    const double values[] = {102.0, 99.875, 100.125, 99.6}; // halves round up
    std::copy(std::begin(values), std::end(values), x);
    conversion.convertToKernel(points, samples, 4);
    const auto* kernel = static_cast<const std::int32_t*>(samples.getData());
    EXPECT_EQ(std::vector<std::int32_t>(kernel, kernel + 4), (std::vector<std::int32_t>{8, 0, 1, -2}));
    conversion.convertFromKernel(samples, points, 4);
    EXPECT_EQ(std::vector<double>(x, x + 4), (std::vector<double>{102.0, 100.0, 100.25, 99.5}));
}

}} // namespace Quillmoran::Testing
