#include <vxunpack/TXTPointWriter.h>

#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/MemoryPointSource.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::errorOf;
using Testing::MemoryPointSource;

ChannelInfo channel(const char* name, DataType type, double quantization = 0)
{
    ChannelInfo info;
    info.init(name, type, 0, quantization);
    return info;
}

PointInfo layoutOf(std::initializer_list<ChannelInfo> channels)
{
    PointInfo layout;
    for (const ChannelInfo& info : channels)
        layout.append(info);
    return layout;
}

const PointInfo xyz =
    layoutOf({channel("X", FLOAT64, 0.01), channel("Y", FLOAT64, 0.01), channel("Z", FLOAT64, 0.01)});

Scoped<MemoryPointSource> threePoints()
{
    PointInfo layout = xyz;
    layout.append(channel("Intensity", UINT16));
    return MemoryPointSource::make(layout, {{1, 2, 3}, {10, 20, 30}, {-0.5, 0, 0.5}, {7, 8, 9}});
}

Scoped<TXTPointWriter> writerTo(IO* io, PointSource& source, const char* format)
{
    Scoped<TXTPointWriter> writer(TXTPointWriter::create());
    writer->init(&source, io, format);
    return writer;
}

std::string write(PointSource& source, const char* format, const PointInfo& layout,
                  const Bounds& bounds = Bounds::Huge(), std::size_t blockSize = 4096)
{
    const Scoped<ByteStore> io = ByteStore::make();
    const Scoped<TXTPointWriter> writer = writerTo(io.get(), source, format);
    writer->setChunckSize(blockSize);
    writer->write(bounds, 1.0, layout, nullptr);
    EXPECT_EQ(io->openCount(), 0);
    return io->text();
}

// The text of one sample of a channel with this quantization.
std::string written(DataType type, double quantization, double value)
{
    PointInfo layout = xyz;
    layout.append(channel("GPSTime", type, quantization));
    const auto source = MemoryPointSource::make(layout, {{0}, {0}, {0}, {value}});
    const std::string text = write(*source, "t", layout);
    const std::string header = "# GPSTime\n";
    EXPECT_EQ(text.substr(0, header.size()), header);
    EXPECT_EQ(text.back(), '\n');
    return text.substr(header.size(), text.size() - header.size() - 1);
}

TEST(TXTPointWriter, WritesHeaderAndFieldsInTheGivenOrder)
{
    const auto source = threePoints();
    EXPECT_EQ(write(*source, "izyx", source->getPointInfo()), "# Intensity Z Y X\n"
                                                              "7 -0.500 10.000 1.000\n"
                                                              "8 0.000 20.000 2.000\n"
                                                              "9 0.500 30.000 3.000\n");
}

TEST(TXTPointWriter, WritesAFieldTwiceIfItIsNamedTwice)
{
    const auto source = threePoints();
    EXPECT_EQ(write(*source, "ixi", source->getPointInfo()),
              "# Intensity X Intensity\n7 1.000 7\n8 2.000 8\n9 3.000 9\n");
}

TEST(TXTPointWriter, OmitsChannelsThatTheSourceDoesNotHave)
{
    const auto source = threePoints();
    EXPECT_EQ(write(*source, "tisR", source->getPointInfo()), "# Intensity\n7\n8\n9\n");
    EXPECT_EQ(write(*source, "ss", source->getPointInfo()), "#\n\n\n\n");
}

TEST(TXTPointWriter, BeginsLinesWithABlankWhenTheFirstColumnIsNotDelivered)
{
    // The source has Intensity, but the written layout does not.
    const auto source = threePoints();
    EXPECT_EQ(write(*source, "ix", xyz), "# X\n 1.000\n 2.000\n 3.000\n");
    EXPECT_EQ(write(*source, "xi", xyz), "# X\n1.000\n2.000\n3.000\n");
    EXPECT_EQ(write(*source, "i", xyz), "#\n\n\n\n");
}

TEST(TXTPointWriter, WritesIntegersOfEveryTypeWhole)
{
    EXPECT_EQ(written(UINT8, 0, 255), "255");
    EXPECT_EQ(written(SINT8, 0, -128), "-128");
    EXPECT_EQ(written(UINT16, 0, 65535), "65535");
    EXPECT_EQ(written(SINT16, 0, -32768), "-32768");
    EXPECT_EQ(written(UINT32, 0, 4294967295), "4294967295");
    EXPECT_EQ(written(SINT32, 0, -2147483648.0), "-2147483648");
    EXPECT_EQ(written(SINT64, 0, -9223372036854775808.0), "-9223372036854775808");

    PointInfo layout = xyz;
    layout.append(channel("GPSTime", UINT64));
    const auto source = MemoryPointSource::make(layout, {{0}, {0}, {0}, {0}});
    const auto largest = std::numeric_limits<std::uint64_t>::max();
    std::memcpy(source->column("GPSTime").getData(), &largest, sizeof largest);
    EXPECT_EQ(write(*source, "t", layout), "# GPSTime\n18446744073709551615\n");
}

TEST(TXTPointWriter, ChoosesDecimalsOfDoublesByQuantization)
{
    const double value = 1.0625;
    const char* const general = "1.0625";
    const struct
    {
        double quantization;
        const char* text;
    } cases[] = {{1, "1.062"},
                 {1.0005, "1.062"},
                 {0.9995, "1.062"},
                 {0.1, "1.062"},
                 {0.001, "1.062"},
                 {1e-4, "1.062500"},
                 {1e-6, "1.062500"},
                 {1e-7, "1.062500000"},
                 {1e-9, "1.062500000"},
                 {1e-12, "1.062500000000"},
                 {1e-15, "1.062500000000000"},
                 // Repeated division by ten gives other doubles, and such small steps must be equal.
                 {1e-13, general},
                 {1e-14, general},
                 {1e-16, general},
                 {1e-17, general},
                 {1e-30, general},
                 {0, general},
                 {-0.01, general},
                 {0.25, general},
                 {0.5, general},
                 {1.5, general},
                 {0.0101, general},
                 {0.01 * (1 + 1e-4), general},
                 {0.01 * (1 - 9e-6), "1.062"},
                 {0.01 * (1 - 2e-5), general},
                 {std::numeric_limits<double>::quiet_NaN(), general},
                 {std::numeric_limits<double>::infinity(), general}};
    for (const auto& c : cases)
        EXPECT_EQ(written(FLOAT64, c.quantization, value), c.text) << "quantization=" << c.quantization;
    double quantization = 0.1;
    for (int decimals = 1; decimals < 16; ++decimals)
        quantization /= 10;
    EXPECT_EQ(written(FLOAT64, quantization, value), general) << "16 decimals are too many";
    EXPECT_EQ(written(FLOAT64, 0, 1.0 / 3), "0.333333333333333315");
}

TEST(TXTPointWriter, ChoosesDecimalsOfSinglesByQuantization)
{
    for (const double quantization : {1.0, 1.0005, 0.1, 0.01, 0.001})
        EXPECT_EQ(written(FLOAT32, quantization, 1.0625), "1.062") << "quantization=" << quantization;
    for (const double quantization : {1e-4, 1e-5, 1e-6, static_cast<double>(1e-6f)})
        EXPECT_EQ(written(FLOAT32, quantization, 1.0625), "1.062500") << "quantization=" << quantization;
    for (const double quantization : {0.0, 0.25, 1.5, 1e-7, 1e-60, -0.1})
        EXPECT_EQ(written(FLOAT32, quantization, 1.0 / 3), "0.333333343") << "quantization=" << quantization;
}

TEST(TXTPointWriter, WritesTheSameTextForEveryBlockSizeAndInFewWrites)
{
    std::vector<std::vector<double>> columns(3);
    std::string expected = "# X Y Z X\n";
    for (int i = 0; i < 20000; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            columns[axis].push_back(i + 0.25 * static_cast<double>(axis));
        const std::string whole = std::to_string(i);
        expected += whole + ".000 " + whole + ".250 " + whole + ".500 " + whole + ".000\n";
    }
    const auto source = MemoryPointSource::make(xyz, columns);
    for (const std::size_t blockSize : {1u, 1000u, 100000u})
        EXPECT_EQ(write(*source, "xyzx", xyz, Bounds::Huge(), blockSize), expected)
            << "blockSize=" << blockSize;

    const Scoped<ByteStore> io = ByteStore::make();
    writerTo(io.get(), *source, "xyzx")->write(Bounds::Huge(), 1.0, xyz, nullptr);
    EXPECT_LT(io->writes(), static_cast<int>(expected.size() / 32768));
}

TEST(TXTPointWriter, WritesLinesLongerThanItsBuffer)
{
    // 6000 columns of 63 characters do not fit 256 KiB.
    const auto source = MemoryPointSource::make(xyz, {{1e70, 1e70}, {0, 0}, {0, 0}});
    const std::string format(6000, 'x');
    const std::string text = write(*source, format.c_str(), xyz);
    EXPECT_EQ(text.size(), 1 + 2 * 6000 + 1 + 2 * (6000 * 64));
}

TEST(TXTPointWriter, WritesOnlyAHeaderIfTheBoxHasNoPoints)
{
    const auto source = threePoints();
    const Bounds elsewhere{{100, 101}, {100, 101}, {100, 101}};
    EXPECT_EQ(write(*source, "xy", xyz, elsewhere), "# X Y\n");
}

TEST(TXTPointWriter, RefusesChannelsWithoutAText)
{
    const auto source = threePoints();
    const Scoped<ByteStore> io = ByteStore::make();
    PointInfo layout = xyz;
    layout.append(channel("Intensity", INVALID));
    for (const PointInfo& wrong : {PointInfo(), layout})
        EXPECT_EQ(
            errorOf(wrong.getNumChannels() == 0 ? 40007 : 40011,
                    [&] { writerTo(io.get(), *source, "xi")->write(Bounds::Huge(), 1, wrong, nullptr); }),
            wrong.getNumChannels() == 0 ? "must have x, y, and z channels" : "");
    EXPECT_EQ(io->writes(), 0);
}

} // namespace
} // namespace Quillmoran
