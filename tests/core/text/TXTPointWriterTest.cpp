#include <vxunpack/TXTPointWriter.h>

#include "support/Test.h"
#include "text/TextDecimals.h"

namespace Quillmoran::Testing { namespace {

const ChannelInfo x = channel("X", FLOAT64, 0.01), y = channel("Y", FLOAT64, 0.01),
                  z = channel("Z", FLOAT64, 0.01);
const PointInfo xyz = layoutOf({x, y, z}), xyzi = layoutOf({x, y, z, channel("Intensity", UINT16)});

Scoped<MemoryPointSource> threePoints()
{
    return MemoryPointSource::make(xyzi, {{1, 2, 3}, {10, 20, 30}, {-0.5, 0, 0.5}, {7, 8, 9}});
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

// The text of one sample of a channel with this quantization; `decimals` of a metadata record, if not 0.
std::string written(DataType type, double quantization, double value, int decimals = 0)
{
    const PointInfo layout = layoutOf({x, y, z, channel("GPSTime", type, quantization)});
    const auto source = MemoryPointSource::make(layout, {{0}, {0}, {0}, {value}});
    if (decimals != 0)
        TextDecimals::add(source->metadata(), "GPSTime", decimals);
    const std::string text = write(*source, "t", layout), header = "# GPSTime\n";
    EXPECT_EQ(text.substr(0, header.size()), header);
    EXPECT_EQ(text.back(), '\n');
    return text.substr(header.size(), text.size() - header.size() - 1);
}

TEST(TXTPointWriter, WritesTheColumnsOfItsFormat)
{
    const auto source = threePoints();
    const std::tuple<const char*, const PointInfo&, const char*> cases[] = {
        {"izyx", xyzi,
         "# Intensity Z Y X\n7 -0.500 10.000 1.000\n8 0.000 20.000 2.000\n9 0.500 30.000 3.000\n"},
        {"ixi", xyzi, "# Intensity X Intensity\n7 1.000 7\n8 2.000 8\n9 3.000 9\n"},
        {"tisR", xyzi, "# Intensity\n7\n8\n9\n"}, // the source has only one of these
        {"ss", xyzi, "#\n\n\n\n"},
        // The source has Intensity, but the written layout does not: lines begin with a blank if it is first.
        {"ix", xyz, "# X\n 1.000\n 2.000\n 3.000\n"},
        {"xi", xyz, "# X\n1.000\n2.000\n3.000\n"},
        {"i", xyz, "#\n\n\n\n"}};
    for (const auto& [format, layout, text] : cases)
        EXPECT_EQ(write(*source, format, layout), text) << format;
    EXPECT_EQ(write(*source, "xy", xyz, {{100, 101}, {100, 101}, {100, 101}}), "# X Y\n");

    const PointInfo odd = layoutOf({x, y, z, channel("a\nb\x1B", UINT8)});
    const auto named = MemoryPointSource::make(odd, {{1}, {2}, {3}, {4}});
    const Scoped<ByteStore> io = ByteStore::make();
    const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
    writer->init(named.get(), io.get(), odd);
    writer->write(Bounds::Huge(), 1.0, odd, nullptr);
    EXPECT_EQ(io->text(), "# X Y Z a\\nb\\x1b\n1.000 2.000 3.000 4\n") << "without control characters";
}

TEST(TXTPointWriter, WritesIntegersOfEveryTypeWhole)
{
    const std::pair<DataType, std::int64_t> extremes[] = {
        {UINT8, 255},        {SINT8, -128},        {UINT16, 65535},    {SINT16, -32768},
        {SINT32, INT32_MIN}, {UINT32, UINT32_MAX}, {SINT64, INT64_MIN}};
    for (const auto& [type, value] : extremes)
        EXPECT_EQ(written(type, 0, static_cast<double>(value)), std::to_string(value));
    EXPECT_EQ(written(UINT64, 0, 0x1p64 - 2048), "18446744073709549568");
}

TEST(TXTPointWriter, ChoosesDecimalsByQuantization)
{
    double sixteenth = 0.1;
    for (int decimals = 1; decimals < 16; ++decimals)
        sixteenth /= 10;
    const std::pair<Numbers, std::string> doubles[] = {
        {{1, 1.00099, 0.99901, 0.1, 0.001, 0.01 * (1 - 9e-6)}, "1.062"},
        {{1e-4, 1e-6}, "1.062500"},
        {{1e-7, 1e-9}, "1.062500000"},
        {{1e-12}, "1.062500000000"},
        {{1e-15}, "1.062500000000000"},
        // Repeated division by ten gives other doubles, and such small steps must be equal.
        {{1e-13, 1e-14, 1e-16, sixteenth, 1e-17, 1e-30, 0, -0.01, 0.25, 0.5, 1.00101, 0.99899, 1.5, 0.0101,
          0.01 * (1 + 1e-4), 0.01 * (1 - 2e-5), nan, infinity},
         "1.0625"}};
    for (const auto& [steps, text] : doubles)
        for (const double step : steps)
            EXPECT_EQ(written(FLOAT64, step, 1.0625), text) << step;
    const std::pair<Numbers, std::string> singles[] = {
        {{1.0, 1.0005, 0.1, 0.01, 0.001}, "1.062"},
        {{1e-4, 1e-5, 1e-6, static_cast<double>(1e-6f)}, "1.062500"},
        {{0.0, 0.25, 1.5, 1e-7, 1e-60, -0.1}, "1.0625"}};
    for (const auto& [steps, text] : singles)
        for (const double step : steps)
            EXPECT_EQ(written(FLOAT32, step, 1.0625), text) << step;
    EXPECT_EQ(written(FLOAT64, 0, 1.0 / 3), "0.333333333333333315");
    EXPECT_EQ(written(FLOAT32, 0, 1.0 / 3), "0.333333343");
}

TEST(TXTPointWriter, ChoosesDecimalsByMetadataIfTheQuantizationGivesNone)
{
    const std::pair<int, const char*> doubles[] = {{1, "0.333"},
                                                   {3, "0.333"},
                                                   {4, "0.333333"},
                                                   {12, "0.333333333333"},
                                                   {13, "0.333333333333333315"},
                                                   {-1, "0.333333333333333315"}};
    for (const auto& [decimals, text] : doubles)
        EXPECT_EQ(written(FLOAT64, 0, 1.0 / 3, decimals), text) << decimals;
    EXPECT_EQ(written(FLOAT64, 0.01, 1.0 / 3, 9), "0.333");
    EXPECT_EQ(written(FLOAT32, 0, 1.0 / 3, 6), "0.333333");
    EXPECT_EQ(written(FLOAT32, 0, 1.0625, 7), "1.0625");

    Metadata records;
    const double values[] = {5, 6};
    records.add("TextDecimals", "B", METADATA_FLOAT64_ARRAY, values, 2);
    records.add("TextDecimals", "C", METADATA_BLOB, values, 1);
    records.add("TextDecimals", nullptr, METADATA_FLOAT64_ARRAY, values, 1);
    records.add("Other", "D", METADATA_FLOAT64_ARRAY, values, 1);
    TextDecimals::add(records, "A", 5);
    TextDecimals::add(records, "A", 7);
    TextDecimals::add(records, "E", 0);
    EXPECT_EQ(TextDecimals::read(records), (std::map<std::string, int>{{"A", 5}}));
    TextDecimals::remove(records);
    EXPECT_EQ(records.getNumRecords(), 1u);
}

TEST(TXTPointWriter, WritesTheSameTextForEveryBlockSizeAndInFewWrites)
{
    std::vector<Numbers> columns(3);
    std::string expected = "# X Y Z X\n";
    for (int i = 0; i < 20000; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            columns[axis].push_back(i + 0.25 * static_cast<double>(axis));
        const std::string whole = std::to_string(i);
        expected += whole + ".000 " + whole + ".250 " + whole + ".500 " + whole + ".000\n";
    }
    const auto source = MemoryPointSource::make(xyz, columns);
    // Slices have 2048 lines, and 8 of them are formatted at a time.
    for (const std::size_t blockSize : {1u, 2047u, 2048u, 2049u, 16384u, 100000u})
        EXPECT_EQ(write(*source, "xyzx", xyz, Bounds::Huge(), blockSize), expected) << blockSize;

    const Scoped<ByteStore> io = ByteStore::make();
    writerTo(io.get(), *source, "xyzx")->write(Bounds::Huge(), 1.0, xyz, nullptr);
    EXPECT_LT(io->writes(), static_cast<int>(expected.size() / 32768));

    // 6000 columns of 63 characters are more than a buffer of 256 KiB.
    const auto wide = MemoryPointSource::make(xyz, {{1e70, 1e70}, {0, 0}, {0, 0}});
    EXPECT_EQ(write(*wide, std::string(6000, 'x').c_str(), xyz).size(), 1 + 2 * 6000 + 1 + 2 * (6000 * 64));
}

TEST(TXTPointWriter, RefusesChannelsWithoutAType)
{
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.txt", "precious");
    const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
    const PointInfo untyped = layoutOf({x, y, z, channel("Intensity", INVALID)});
    writer->init(threePoints().get(), path.c_str(), untyped);
    EXPECT_EQ(failureOf([&] { writer->write(Bounds::Huge(), 1.0, untyped, nullptr); }), "40011 ");
    EXPECT_EQ(readFile(path), "precious");
}

}} // namespace Quillmoran::Testing
