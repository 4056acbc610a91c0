#include "common/container/WaveletChannelInfo.h"

#include "common/bands/KernelSamples.h"
#include "platform/Stream.h"
#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

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

Bytes save(const WaveletChannelInfo& record, bool extended = false)
{
    int size = 0;
    const Bytes bytes = writtenBytes([&](StreamWriter& stream) {
        size = extended ? record.saveExtended(stream, ErrorCode::General)
                        : record.save(stream, ErrorCode::General);
    });
    EXPECT_EQ(bytes.size(), static_cast<std::size_t>(size));
    return bytes;
}

void load(WaveletChannelInfo& record, const Bytes& bytes, bool extended = false)
{
    const Scoped<ByteStore> io(ByteStore::create(bytes));
    StreamReader reader;
    reader.init(io.get(), true, 16);
    const int size =
        extended ? record.loadExtended(reader, ErrorCode::General) : record.load(reader, ErrorCode::General);
    EXPECT_EQ(size, io->size());
}

WaveletChannelInfo reloaded(const WaveletChannelInfo& record)
{
    WaveletChannelInfo loaded;
    load(loaded, save(record));
    return loaded;
}

TEST(WaveletChannelInfo, DerivesTheKernelFromRangeAndHeadroom)
{
    const std::tuple<const char*, TransformType, std::int64_t, std::int64_t, int, DataType> cases[] = {
        {"X", 1, -(1 << 20), 1 << 20, 22, SINT32},
        {"I", 10, 0, 0, 0, SINT16},
        {"I", 1, 0, 4095, 12, SINT16},
        {"I", 1, 0, 4096, 13, SINT32},
        {"I", 10, 0, 32767, 15, SINT16},
        {"I", 10, -32768, 0, 16, SINT32},
        {"I", 10, -65536, -65535, 17, SINT32},
        {"I", 13, 0, 511, 9, SINT16},
        {"I", 93, 0, 512, 10, SINT32},
        {"I", 10, 0, (1ll << 31) - 1, 31, SINT32},
        {"I", 90, 0, 1ll << 31, 32, SINT64},
        {"I", 10, INT64_MIN, INT64_MAX, 64, SINT64},
        {"@d|T", 10, 0, 7, 3, SINT64},
        {"@f|T", 1, 0, 7, 3, SINT32},
        {"@e|T", 10, 1000, 1040, 11, SINT16},
    };
    for (const auto& [name, transform, low, high, bits, kernel] : cases) {
        const WaveletChannelInfo record = reloaded(recordOf(name, UINT16, transform, low, high));
        EXPECT_EQ(record.getBits(), bits) << name << " " << int{transform} << " " << high;
        EXPECT_EQ(record.getKernelDataType(), kernel) << name << " " << int{transform} << " " << high;
    }
    WaveletChannelInfo empty;
    empty.init("E", UINT8, 8, 10, 64, 0, 0);
    EXPECT_EQ(reloaded(empty).getKernelDataType(), SINT64);
}

// Name, types, transform, subblock size, range, and the offset and scale of quantized channels only.
TEST(WaveletChannelInfo, StoresItsFields)
{
    const WaveletChannelInfo quantized = recordOf("X", FLOAT64, 1, -5, 7, 0.25);
    EXPECT_EQ(save(quantized), fromHex("5800000000000000000000000000000008030100000080"
                                       "fffffffffffffffb000000000000000740250000000000003fd0000000000000"));
    EXPECT_EQ(reloaded(quantized).getScale(), 0.25);
    EXPECT_EQ(reloaded(quantized).getOffset(), 10.5);
    EXPECT_EQ(reloaded(quantized).getMinimum().integer, -5);
    EXPECT_EQ(reloaded(quantized).getMaximum().integer, 7);
    EXPECT_TRUE(reloaded(quantized).isQuantized());

    const WaveletChannelInfo plain = recordOf("SixteenCharacter", UINT8, 10, 0, 31);
    EXPECT_EQ(save(plain), fromHex("5369787465656e43686172616374657201000a00000080"
                                   "0000000000000000000000000000001f"));
    EXPECT_STREQ(reloaded(plain).getName(), "SixteenCharacter");
    EXPECT_EQ(reloaded(plain).getScale(), 0);
    EXPECT_FALSE(reloaded(plain).isQuantized());

    WaveletChannelInfo deflated;
    deflated.init("T", FLOAT64, 64, 70, 32, 0, 0);
    EXPECT_EQ(reloaded(deflated).getKernelDataType(), FLOAT64);
    EXPECT_EQ(reloaded(deflated).getMinimum().real, infinity);
    KernelSamples samples;
    samples.reserve(FLOAT64, 3);
    for (const double first : {1.5, -0.0}) { // the range grows, and ignores NaNs
        const double values[] = {first, std::nan(""), -first - 1};
        std::copy(std::begin(values), std::end(values), static_cast<double*>(samples.getData()));
        deflated.updateMinMax(samples, 3);
    }
    deflated.updateMinMax(samples, 0);
    EXPECT_EQ(reloaded(deflated).getMinimum().real, -2.5);
    EXPECT_EQ(reloaded(deflated).getMaximum().real, 1.5);
}

TEST(WaveletChannelInfo, KeepsLongNamesInTheExtendedRecord)
{
    const WaveletChannelInfo full = recordOf("AVeryLongChannelNameIndeed", UINT16, 10, 0, 1);
    WaveletChannelInfo record = reloaded(full);
    EXPECT_STREQ(record.getName(), "AVeryLongChannel");
    load(record, save(full, true), true);
    EXPECT_STREQ(record.getName(), "AVeryLongChannelNameIndeed");
    load(record, {0, 4, 'a', 0, 'b', 'c'}, true); // a NUL ends the name
    EXPECT_EQ(record.getName(), std::string("a"));
    const std::string longest(65535, 'n');
    EXPECT_EQ(save(recordOf(longest.c_str(), UINT8, 10, 0, 1), true).size(), 65537u);
    const WaveletChannelInfo tooLong = recordOf((longest + "n").c_str(), UINT8, 10, 0, 1);
    EXPECT_EQ(failureOf([&] { save(tooLong, true); }), "-1 bad write -- channel name length");
}

}} // namespace Quillmoran::Testing
