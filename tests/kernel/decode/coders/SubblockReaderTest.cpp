#include "decode/coders/SubblockReader.h"

#include "platform/Stream.h"
#include "support/Kernels.h"
#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Decodes a subblock of `count` samples.
Bytes decode(DataType type, TransformType transform, const EncodedBand& band, std::size_t count,
             bool planeLengths = false)
{
    const Scoped<ByteStore> headerStore(ByteStore::create(band.headers));
    const Scoped<ByteStore> dataStore(ByteStore::create(band.data));
    StreamReader headers, data;
    headers.init(headerStore.get(), true, 64);
    data.init(dataStore.get(), true, 64);
    const auto reader = SubblockReader::create({type, transform, count, planeLengths});
    reader->init();
    // An exact-size block, so that sanitizers see one sample too many.
    const std::size_t size = count * DataTypeUtils::getSize(type);
    const auto block = std::make_unique<std::uint8_t[]>(size);
    EXPECT_EQ(reader->loadSubblock(headers, data, block.get(), count, 0), 0u);
    return Bytes(block.get(), block.get() + size);
}

template <class T>
void expectSamples(const std::vector<T>& samples, TransformType transform, const EncodedBand& band,
                   bool planeLengths = false)
{
    const Bytes decoded = decode(kernelOf<T>, transform, band, samples.size(), planeLengths);
    EXPECT_EQ(std::memcmp(decoded.data(), samples.data(), decoded.size()), 0) << int{transform};
}

TEST(MQInteger, RestoresSpecialSamples)
{
    for (const int rawPlanes : {0, 5, 16}) {
        BandOptions options;
        options.rawPlanes = rawPlanes;
        for (const std::vector<std::int16_t>& samples :
             {std::vector<std::int16_t>{INT16_MIN, INT16_MAX, 0, -1, INT16_MIN}, // all planes
              std::vector<std::int16_t>{-24000, 16, 0, -32}}) {                  // without the lowest planes
            expectSamples(samples, 1, encodeBand(samples, options, false));
        }
    }
    // The length of each plane has 16 bits, so a payload of more than 64 KiB fills several.
    Random random(8);
    BandOptions options;
    options.perPlaneLengths = true;
    options.subblockSize = 50000;
    std::vector<std::int32_t> noise(options.subblockSize);
    for (std::int32_t& sample : noise)
        sample = static_cast<std::int32_t>(random.between(-32768, 32767));
    const EncodedBand band = encodeBand(noise, options, false);
    EXPECT_GT(band.data.size(), 65536u);
    expectSamples(noise, 1, band, true);
}

// The bytes were decoded to these samples by plain implementations of the two published coders.
TEST(SubblockReader, DecodesKnownBytes)
{
    // Magnitudes of every bit length.
    const std::vector<std::int32_t> samples = {0,  0,     1,    -1,    5,  -300, 70,    0,
                                               0,  -2,    1023, 0,     3,  127,  -128,  0,
                                               45, 32767, 18,   -2500, -9, 6000, 10000, -1500};
    struct Case
    {
        TransformType transform;
        int rawPlanes;
        bool planeLengths;
        Bytes headers, data;
    };
    const Case cases[] = {
        {1, 0, false, fromHex("0a9a0000001c"),
         fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85e5f7a97208b7")},
        {1, 2, false, fromHex("0a9c00000020"),
         fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85dfffff40ae18d0413301")},
        {3, 0, true,
         fromHex("0a9a0e001c0d00000c00000b00000a0000090000080000070000060000050000040000030000020000010000000"
                 "000"),
         fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85e5f7a97208b7")},
        {91, 0, false, fromHex("0000081e"),
         fromHex("85591883fb40187fe7ff6e02f1b2a33283ff3329d7257dcfd8209c294c5a")},
    };
    for (const Case& c : cases) {
        const BandOptions options{c.transform, 64, c.planeLengths, c.rawPlanes};
        const EncodedBand band = encodeBand(samples, options, false);
        EXPECT_EQ(band.headers, c.headers) << int{c.transform};
        EXPECT_EQ(band.data, c.data) << int{c.transform};
        expectSamples(samples, c.transform, {c.headers, c.data}, c.planeLengths);
    }
    // In big-endian order, in a deflate block that is stored without compression.
    expectSamples(std::vector<double>{1.5, -2}, 70,
                  {fromHex("00000815"), fromHex("011000EFFF3FF8000000000000C000000000000000")});
}

std::string loadFailure(DataType type, TransformType transform, const Bytes& headers, const Bytes& data,
                        bool planeLengths = false, std::size_t count = 4)
{
    return failureOf([&] { decode(type, transform, {headers, data}, count, planeLengths); });
}

template <class Header>
Bytes header(Header value, std::initializer_list<std::uint8_t> more = {})
{
    Bytes bytes;
    putBigEndian(bytes, value);
    for (const std::uint8_t byte : more)
        bytes.push_back(byte);
    return bytes;
}

TEST(SubblockReader, ReportsShortHeaders)
{
    EXPECT_EQ(loadFailure(SINT16, 1, {}, {}), "40207 bad read -- subblock header");
    EXPECT_EQ(loadFailure(SINT16, 1, {8}, {}), "40207 bad read -- subblock header");
    EXPECT_EQ(loadFailure(SINT16, 91, {0, 0, 8}, {}), "40207 bad read -- subblock header");
    EXPECT_EQ(loadFailure(FLOAT32, 70, {0}, {}), "40207 bad read -- subblock header");
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049, {0, 0, 1}), {}),
              "40207 bad read -- plane length header");
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049), {}, true),
              "40207 bad read -- plane layer header");
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049, {7, 1}), {}, true),
              "40207 bad read -- plane length header");
}

TEST(SubblockReader, RefusesPlanesBeyondTheSampleType)
{
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2048), {}), "40207 bad read -- subblock header");
    // 16 planes have 16 * 17 * 21 / 6 codes.
    const Bytes payload = {0xFF, 0x7F};
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049 + 952 - 1, {0, 0, 0, 2}), payload),
              "no error");
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049 + 952, {0, 0, 0, 2}), payload),
              "40207 bad read -- subblock header");
    EXPECT_EQ(loadFailure(SINT32, 1, header<std::uint16_t>(2049 + 952, {0, 0, 0, 2}), payload), "no error");
    EXPECT_EQ(loadFailure(SINT64, 1, header<std::uint16_t>(0xFFFF, {0, 0, 0, 2}), payload),
              "40207 bad read -- subblock header");
}

TEST(SubblockReader, RefusesMissingAndOversizedPayloads)
{
    const std::string refused = "40207 bad read -- subblock data";
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049, {0, 0, 0, 3}), {1, 2}), refused);
    EXPECT_EQ(loadFailure(SINT16, 1, header<std::uint16_t>(2049, {0xFF, 0xFF, 0xFF, 0xFF}), {1, 2}), refused);
    // Four samples have a buffer of 12, 24 and 48 bytes.
    const Bytes data(4096, 0x55);
    EXPECT_EQ(loadFailure(SINT16, 91, header<std::uint32_t>(2048 + 12), data), "no error");
    EXPECT_EQ(loadFailure(SINT16, 91, header<std::uint32_t>(2048 + 13), data), refused);
    EXPECT_EQ(loadFailure(SINT32, 91, header<std::uint32_t>(2048 + 24), data), "no error");
    EXPECT_EQ(loadFailure(SINT32, 91, header<std::uint32_t>(2048 + 25), data), refused);
    EXPECT_EQ(loadFailure(SINT64, 1, header<std::uint16_t>(2049, {0, 0, 0, 49}), data), refused);
    EXPECT_EQ(loadFailure(FLOAT64, 70, header<std::uint32_t>(2048 + 2000), data), refused);
}

TEST(SubblockReader, ReportsBrokenDeflateStreams)
{
    BandOptions options;
    options.transform = 70;
    const std::vector<double> four = {1, 2, 3, 4};
    const EncodedBand good = encodeBand(four, options, false);
    Bytes cut(good.data.begin(), good.data.end() - 3);
    EXPECT_EQ(loadFailure(FLOAT64, 70, header(static_cast<std::uint32_t>(2048 + cut.size())), cut),
              "40230 inflate(Z_NO_FLUSH): buffer error");
    // A complete stream with fewer and with more samples than requested.
    EXPECT_EQ(loadFailure(FLOAT64, 70, good.headers, good.data, false, 5),
              "40230 inflate(Z_NO_FLUSH): buffer error");
    EXPECT_EQ(loadFailure(FLOAT64, 70, good.headers, good.data, false, 3),
              "40230 inflate(Z_NO_FLUSH): buffer error");
    EXPECT_EQ(loadFailure(FLOAT64, 70, header<std::uint32_t>(2048 + 2), {0xFF, 0xFF}),
              "40230 inflate(Z_NO_FLUSH): invalid block type");
}

TEST(SubblockReader, IsCreatedByTransformAndType)
{
    const auto create = [](DataType type, TransformType transform) {
        return failureOf([&] { SubblockReader::create({type, transform, 64}); });
    };
    EXPECT_EQ(create(UINT16, 70), "40007 unkown datatype");
    EXPECT_EQ(create(UINT16, 1), "40007 unkown datatype");
    EXPECT_EQ(create(FLOAT32, 91), "40007 unkown datatype");
    EXPECT_EQ(create(SINT32, 61), "40007 unkown datatype");
    EXPECT_EQ(create(SINT16, 4), "-1 bad transform type");
    EXPECT_EQ(create(FLOAT64, 63), "no error");
}

}} // namespace Quillmoran::Testing
