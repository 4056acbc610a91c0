#include "common/container/WaveletChannelInfo.h"

#include "common/bands/KernelSamples.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"

#include <gtest/gtest.h>
#include <limits>

namespace Quillmoran {
namespace {

using Testing::ByteStore;

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

// A record of an integer kernel with this range.
WaveletChannelInfo recordOf(const char* name, DataType type, TransformType transform, std::int64_t low,
                            std::int64_t high, double scale = 0)
{
    WaveletChannelInfo record;
    record.init(name, type, 63 - TransformUtils::getHeadroom(transform), transform, 128, 10.5, scale);
    KernelSamples samples;
    samples.reserve(SINT64, 2);
    auto* kernel = static_cast<std::int64_t*>(samples.getData());
    kernel[0] = low;
    kernel[1] = high;
    record.updateMinMax(samples, 2);
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

} // namespace
} // namespace Quillmoran
