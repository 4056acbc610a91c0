#include "common/container/WaveletChannelInfo.h"

#include "common/container/ChunkHeader.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Random.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::Random;

template <class Write>
Scoped<ByteStore> written(Write write)
{
    Scoped<ByteStore> io(ByteStore::create());
    StreamWriter writer;
    writer.init(io.get(), true, 64);
    write(writer);
    writer.close(true);
    return io;
}

// A record whose integer kernel has seen the two values.
WaveletChannelInfo recordOf(const char* name, DataType type, TransformType transform, std::int64_t low,
                            std::int64_t high, double scale = 0)
{
    WaveletChannelInfo record;
    record.init(name, type, 63 - TransformUtils::getHeadroom(transform), transform, 128, 10.5, scale);
    record.reserveKernel(2);
    auto* kernel = static_cast<std::int64_t*>(record.getKernel().getData());
    kernel[0] = low;
    kernel[1] = high;
    record.updateMinMax(2);
    return record;
}

WaveletChannelInfo reloaded(const WaveletChannelInfo& record, int* size = nullptr)
{
    int saved = 0;
    const auto io = written([&](StreamWriter& writer) { saved = record.save(writer, ErrorCode::General); });
    EXPECT_EQ(io->size(), saved);
    if (size)
        *size = saved;
    StreamReader reader;
    reader.init(io.get(), true, 16);
    WaveletChannelInfo loaded;
    EXPECT_EQ(loaded.load(reader, ErrorCode::General), saved);
    return loaded;
}

TEST(WaveletChannelInfo, DerivesTheKernelFromRangeAndHeadroom)
{
    struct Case
    {
        const char* name;
        TransformType transform;
        std::int64_t low, high;
        int bits;
        DataType kernel;
    };
    const Case cases[] = {
        {"X", 1, -(1 << 20), 1 << 20, 22, SINT32},
        {"I", 10, 0, 0, 0, SINT16},
        {"I", 1, 0, 4095, 12, SINT16},
        {"I", 1, 0, 4096, 13, SINT32},
        {"I", 10, 0, 32767, 15, SINT16},
        {"I", 10, -32768, 0, 16, SINT32},
        {"I", 13, 0, 511, 9, SINT16},
        {"I", 93, 0, 512, 10, SINT32},
        {"I", 10, 0, (1ll << 31) - 1, 31, SINT32},
        {"I", 90, 0, 1ll << 31, 32, SINT64},
        {"I", 10, INT64_MIN, INT64_MAX, 64, SINT64},
        {"@d|T", 10, 0, 7, 3, SINT64},
        {"@f|T", 1, 0, 7, 3, SINT32},
        {"@e|T", 10, 1000, 1040, 11, SINT16},
    };
    for (const Case& c : cases) {
        const WaveletChannelInfo record = reloaded(recordOf(c.name, UINT16, c.transform, c.low, c.high));
        EXPECT_EQ(record.getBits(), c.bits) << c.name << " " << int{c.transform} << " " << c.high;
        EXPECT_EQ(record.getKernelDataType(), c.kernel) << c.name << " " << int{c.transform} << " " << c.high;
    }
    WaveletChannelInfo empty;
    empty.init("E", UINT8, 8, 10, 64, 0, 0);
    EXPECT_EQ(reloaded(empty).getKernelDataType(), SINT64);
}

TEST(WaveletChannelInfo, StoresOffsetAndScaleOnlyForQuantizedChannels)
{
    int size = 0;
    const WaveletChannelInfo quantized = reloaded(recordOf("X", FLOAT64, 1, -5, 7, 0.25), &size);
    EXPECT_EQ(size, 55);
    EXPECT_EQ(quantized.getScale(), 0.25);
    EXPECT_EQ(quantized.getOffset(), 10.5);
    EXPECT_EQ(quantized.getMinimum().integer, -5);
    EXPECT_EQ(quantized.getMaximum().integer, 7);
    EXPECT_TRUE(quantized.isQuantized());

    const WaveletChannelInfo plain = reloaded(recordOf("ClassId", UINT8, 10, 0, 31), &size);
    EXPECT_EQ(size, 39);
    EXPECT_EQ(plain.getScale(), 0);
    EXPECT_FALSE(plain.isQuantized());

    WaveletChannelInfo deflated;
    deflated.init("T", FLOAT64, 64, 70, 32, 0, 0);
    const WaveletChannelInfo real = reloaded(deflated, &size);
    EXPECT_EQ(size, 39);
    EXPECT_EQ(real.getKernelDataType(), FLOAT64);
    EXPECT_EQ(real.getMinimum().real, std::numeric_limits<double>::infinity());
}

TEST(WaveletChannelInfo, KeepsLongNamesInTheExtendedRecord)
{
    const char name[] = "AVeryLongChannelNameIndeed";
    WaveletChannelInfo record = reloaded(recordOf(name, UINT16, 10, 0, 1));
    EXPECT_STREQ(record.getName(), "AVeryLongChannel");
    const WaveletChannelInfo full = recordOf(name, UINT16, 10, 0, 1);
    const auto io =
        written([&](StreamWriter& writer) { full.saveExtended(writer, static_cast<ErrorCode>(7)); });
    StreamReader reader;
    reader.init(io.get(), true, 16);
    EXPECT_EQ(record.loadExtended(reader, static_cast<ErrorCode>(7)), 28);
    EXPECT_STREQ(record.getName(), name);
}

TEST(WaveletChannelInfo, ReportsEveryShortRecord)
{
    const auto io = written(
        [&](StreamWriter& writer) { recordOf("X", FLOAT64, 1, 0, 1, 0.1).save(writer, ErrorCode::General); });
    for (std::size_t length = 0; length < 55; ++length) {
        const Scoped<ByteStore> cut(
            ByteStore::create({io->bytes().begin(), io->bytes().begin() + static_cast<int>(length)}));
        StreamReader reader;
        reader.init(cut.get(), true, 8);
        WaveletChannelInfo record;
        try {
            record.load(reader, static_cast<ErrorCode>(4711));
            FAIL() << "length=" << length;
        } catch (const Error& error) {
            EXPECT_EQ(error.error(), 4711);
            EXPECT_STREQ(error.what(), "bad read -- channel info");
        }
    }
}

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

    WaveletChannelInfo parts[3];
    const char* const names[3] = {fractionName, "@e|T", "@s|T"};
    const int bits[3] = {sizeof(Float) == 8 ? 63 : 31, 11, 1};
    for (int i = 0; i < 3; ++i) {
        parts[i].init(names[i], type, bits[i], 10, 64, 0, 0);
        parts[i].setupConvert(static_cast<ConversionAction>(CONVERT_EXTRACT_FRACTION + i), 3);
        parts[i].convertToKernel(points, count);
    }
    for (int i = 1; i < 3; ++i) {
        // Files may hold exponents and signs in wider kernels.
        ChannelInfo wider;
        wider.init("part", partKernel, 0, 0);
        ChannelData copy;
        copy.init(wider, count);
        ChannelData::convert(copy, 0, parts[i].getKernel(), 0, count);
        parts[i].getKernel().init(wider, count);
        ChannelData::copy(parts[i].getKernel(), 0, copy, 0, count);
    }
    std::memset(samples, 0, count * sizeof(Float));
    parts[0].mergeFromKernel(parts[1], parts[2], points, count);
    EXPECT_EQ(std::memcmp(samples, original.data(), count * sizeof(Float)), 0);
}

TEST(WaveletChannelInfo, MergesSplitChannelsBitForBit)
{
    for (const DataType kernel : {SINT16, SINT32, SINT64}) {
        expectSplitRoundTrip<double>(FLOAT64, "@d|T", kernel);
        expectSplitRoundTrip<float>(FLOAT32, "@f|T", kernel);
    }
}

TEST(WaveletChannelInfo, CutsPartsThatLeaveTheirFields)
{
    PointData points = makePoints("T", FLOAT64, 1);
    WaveletChannelInfo fraction, exponent, sign;
    fraction.init("@d|T", FLOAT64, 63, 10, 64, 0, 0);
    exponent.init("@e|T", FLOAT64, 11, 10, 64, 0, 0);
    sign.init("@s|T", FLOAT64, 1, 10, 64, 0, 0);
    fraction.setupConvert(CONVERT_MERGE, 3);
    for (WaveletChannelInfo* part : {&fraction, &exponent, &sign})
        part->reserveKernel(1);
    *static_cast<std::int64_t*>(fraction.getKernel().getData()) = -1;
    *static_cast<std::int16_t*>(exponent.getKernel().getData()) = static_cast<std::int16_t>(0x7800 | 1023);
    *static_cast<std::int16_t*>(sign.getKernel().getData()) = 2;
    fraction.mergeFromKernel(exponent, sign, points, 1);
    EXPECT_EQ(*static_cast<const double*>(points.getChannel(3).getData()), std::nextafter(2.0, 0.0));
}

TEST(WaveletChannelInfo, QuantizesAndDequantizes)
{
    PointData points = makePoints("T", FLOAT32, 3);
    WaveletChannelInfo record;
    record.init("X", FLOAT64, 20, 1, 64, 100.0, 0.25);
    record.setupConvert(CONVERT_PLAIN, 0);
    double* x = points.getX();
    x[0] = 102.0;
    x[1] = 99.875; // halves round up
    x[2] = 100.125;
    record.convertToKernel(points, 3);
    const auto* kernel = static_cast<const std::int32_t*>(record.getKernel().getData());
    EXPECT_EQ(kernel[0], 8);
    EXPECT_EQ(kernel[1], 0);
    EXPECT_EQ(kernel[2], 1);
    record.convertFromKernel(points, 3);
    EXPECT_EQ(x[0], 102.0);
    EXPECT_EQ(x[2], 100.25);
}

TEST(ChunkHeader, PatchesItsLengthBehindThePayload)
{
    ChunkHeader header;
    const auto io = written([&](StreamWriter& writer) {
        writer.put_str("before");
        header.id = CHUNK_WKT;
        EXPECT_EQ(header.write(writer, false), 12);
        writer.put_str("payload");
        header.write(writer, true);
        writer.put_str("behind");
    });
    StreamReader reader;
    reader.init(io.get(), true, 8);
    reader.seek(6, Stream::SEEK_FROM_START);
    ChunkHeader read;
    read.read(reader);
    EXPECT_EQ(read.id, CHUNK_WKT);
    EXPECT_EQ(read.length, 7);
    EXPECT_EQ(read.offset, 6);
    EXPECT_EQ(io->size(), 6 + 12 + 7 + 6);
    IO::Location whole;
    read.save(io.get(), whole);
    EXPECT_EQ(whole.offset(), 6);
    EXPECT_EQ(whole.length(), 19);
}

} // namespace
} // namespace Quillmoran
