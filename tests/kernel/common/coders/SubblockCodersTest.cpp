#include "decode/coders/SubblockReader.h"

#include "common/coders/BitPlanes.h"
#include "common/coders/TransformUtils.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/Stream.h"
#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

template <class T>
EncodedBand encode(const SubblockFormat& format, const std::vector<T>& samples)
{
    EncodedBand band;
    SubblockWriter::create(format)->encode(samples.data(), samples.size(), band.headers, band.data);
    return band;
}

// Decodes a subblock that fills its size.
template <class T>
std::vector<T> decode(const SubblockFormat& format, const EncodedBand& band)
{
    const Scoped<ByteStore> headerStore(ByteStore::create(band.headers));
    const Scoped<ByteStore> dataStore(ByteStore::create(band.data));
    StreamReader headers, data;
    headers.init(headerStore.get(), true, 64);
    data.init(dataStore.get(), true, 64);
    const auto reader = SubblockReader::create(format);
    reader->init();
    std::vector<T> samples(format.subblockSize);
    EXPECT_EQ(reader->loadSubblock(headers, data, samples.data(), samples.size(), 0), 0u);
    return samples;
}

template <class T>
void expectRestored(SubblockFormat format, const std::vector<T>& samples)
{
    format.type = kernelOf<T>;
    format.subblockSize = samples.size();
    EXPECT_EQ(decode<T>(format, encode(format, samples)), samples) << int{format.transform};
}

// Readers refuse payloads larger than one and a half times the raw size.
template <class T>
void expectNoiseRestored(TransformType transform, int bits)
{
    Random random(9);
    for (std::size_t size = SubblockWriter::smallestSubblock; size < 600; size += size / 2) {
        for (int round = 0; round < 40; ++round) {
            std::vector<T> samples(size);
            for (T& sample : samples) {
                // Long runs of small and then of large samples: models adapted to one are wrong for the other.
                const int width = round % 2 == 0 ? bits : static_cast<int>(random.between(0, 1)) * bits;
                sample = width == 0 ? T{0} : static_cast<T>(random.next() >> (64 - width));
                if (round % 3 == 0 && random.chance(0.5))
                    sample = static_cast<T>(0 - sample);
            }
            samples[0] = 1;
            expectRestored({kernelOf<T>, transform}, samples);
        }
    }
}

TEST(SubblockReader, RestoresAnySamples)
{
    expectNoiseRestored<std::int16_t>(11, 15);
    expectNoiseRestored<std::int32_t>(10, 31);
    expectNoiseRestored<std::int64_t>(13, 63);
    expectNoiseRestored<std::int16_t>(91, 14);
    expectNoiseRestored<std::int32_t>(90, 15);
    for (const int rawPlanes : {0, 5, 16}) { // all planes, and without the lowest ones
        expectRestored<std::int16_t>({SINT16, 1, 0, false, rawPlanes},
                                     {INT16_MIN, INT16_MAX, 0, -1, INT16_MIN});
        expectRestored<std::int16_t>({SINT16, 1, 0, false, rawPlanes}, {-24000, 16, 0, -32});
    }
    // The length of each plane has 16 bits, so a payload of more than 64 KiB fills several.
    Random random(8);
    std::vector<std::int32_t> noise(50000);
    for (std::int32_t& sample : noise)
        sample = static_cast<std::int32_t>(random.between(-32768, 32767));
    expectRestored({SINT32, 1, 0, true, 0}, noise);
    // Runs of zeros that are longer than a step of the MQ coder.
    std::vector<std::int16_t> sparse(400001);
    sparse[70000] = sparse[399999] = -1;
    expectRestored({SINT16, 1, 0, false, 0}, sparse);
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
        EncodedBand band;
    };
    const Case cases[] = {
        {1,
         0,
         false,
         {fromHex("0a9a0000001c"), fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85e5f7a97208b7")}},
        {1,
         2,
         false,
         {fromHex("0a9c00000020"),
          fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85dfffff40ae18d0413301")}},
        {3,
         0,
         true,
         {fromHex("0a9a0e001c0d00000c00000b00000a000009000008000007000006000005000004000003000002000001000000"
                  "0000"),
          fromHex("8d73c729c83b852b208fdeb142b603b71e0888278b85e5f7a97208b7")}},
        {91,
         0,
         false,
         {fromHex("0000081e"), fromHex("85591883fb40187fe7ff6e02f1b2a33283ff3329d7257dcfd8209c294c5a")}},
    };
    for (const Case& c : cases) {
        const SubblockFormat format{SINT32, c.transform, samples.size(), c.planeLengths, c.rawPlanes};
        const EncodedBand band = encode(format, samples);
        EXPECT_EQ(band.headers, c.band.headers) << int{c.transform};
        EXPECT_EQ(band.data, c.band.data) << int{c.transform};
        EXPECT_EQ(decode<std::int32_t>(format, c.band), samples);
    }
    // In big-endian order, in a deflate block that is stored without compression.
    const Bytes stored = fromHex("011000EFFF3FF8000000000000C000000000000000");
    EXPECT_EQ(decode<double>({FLOAT64, 70, 2}, {fromHex("00000815"), stored}), (Numbers{1.5, -2}));
}

TEST(BitPlanes, CodeRestoresEveryTriple)
{
    std::uint32_t code = 0;
    for (int top = 0; top < 64; ++top) {
        for (int bottom = 0; bottom <= top; ++bottom) {
            for (int rawTop = bottom - 1; rawTop <= top; ++rawTop, ++code) {
                const BitPlanes planes = BitPlanes::fromCode(code);
                ASSERT_EQ(planes.top, top) << code;
                ASSERT_EQ(planes.bottom, bottom) << code;
                ASSERT_EQ(planes.rawTop, rawTop) << code;
                ASSERT_EQ(planes.toCode(), code);
            }
        }
    }
    EXPECT_EQ((BitPlanes{15, 15, 15}.toCode()), 3000u - 2049u);
}

TEST(SubblockWriter, StoresNoisyPlanesRawAndOthersCoded)
{
    Random random(2);
    std::vector<std::int32_t> noise(4096), quiet(4096);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = 16 * static_cast<std::int32_t>(random.between(-2048, 2047));
        quiet[i] = random.chance(0.01) ? 1 : 0;
    }
    const auto planesOf = [&](const std::vector<std::int32_t>& samples) {
        const Bytes headers = encode({SINT32, 11, 4096}, samples).headers;
        return BitPlanes::fromCode(static_cast<std::uint32_t>(headers[0] << 8 | headers[1]) - 2049);
    };
    EXPECT_GE(planesOf(noise).rawTop, 11);
    EXPECT_EQ(planesOf(noise).bottom, 4); // planes without a one-bit need no space
    EXPECT_EQ(planesOf(quiet).rawTop, -1);
}

// The smallest payload is that of the best number of raw planes. For speed, each raw plane costs less than half a
// bit per sample.
TEST(SubblockWriter, PrefersSizeOrSpeed)
{
    Random random(5);
    for (int round = 0; round < 12; ++round) {
        std::vector<std::int32_t> samples(2000);
        for (std::int32_t& sample : samples) {
            const int width = static_cast<int>(random.between(0, random.chance(0.1) ? 20 : round));
            sample = static_cast<std::int32_t>(random.between(-1, 1) << width) + (round % 2 == 0 ? 0 : 77);
        }
        const auto encoded = [&](std::optional<int> rawPlanes, Preference preference) {
            return encode({SINT32, 11, samples.size(), false, rawPlanes, preference}, samples);
        };
        const auto planesOf = [](const EncodedBand& band) {
            return BitPlanes::fromCode(static_cast<std::uint32_t>(band.headers[0] << 8 | band.headers[1]) -
                                       2049);
        };
        std::size_t smallest = SIZE_MAX;
        for (int rawPlanes = 0; rawPlanes < 20; ++rawPlanes)
            smallest = std::min(smallest, encoded(rawPlanes, Preference::Balanced).data.size());
        const EncodedBand size = encoded({}, Preference::Size), speed = encoded({}, Preference::Speed);
        EXPECT_LE(size.data.size(), smallest + 2) << round; // whole bytes
        const int more = planesOf(speed).rawTop - planesOf(size).rawTop;
        EXPECT_GE(more, 0) << round;
        EXPECT_LE(speed.data.size(),
                  size.data.size() + samples.size() * static_cast<std::size_t>(more) / 16 + 2);
        expectRestored<std::int32_t>({SINT32, 11, 0, false, {}, Preference::Size}, samples);
        expectRestored<std::int32_t>({SINT32, 11, 0, false, {}, Preference::Speed}, samples);
    }
}

TEST(SubbandWriter, CountsUpTo2048ZeroSubblocksPerHeader)
{
    std::vector<std::int32_t> samples(5003 * 16 + 7); // the last subblock is short
    samples[5000 * 16] = 1;
    BandOptions options;
    options.subblockSize = 16;
    const Bytes wide = encodeBand(samples, options, false).headers;
    EXPECT_EQ(wide.size(), 4 * 2 + 2 + 4u); // zero runs, header and length of the payload
    EXPECT_EQ(Bytes(wide.begin(), wide.begin() + 6), (Bytes{0x07, 0xFF, 0x07, 0xFF, 0x03, 0x87}));
    EXPECT_EQ(Bytes(wide.end() - 2, wide.end()), (Bytes{0, 2}));
    options.transform = 90;
    const Bytes coded = encodeBand(samples, options, false).headers;
    EXPECT_EQ(coded.size(), 4 * 4 + 4u);
    EXPECT_EQ(Bytes(coded.begin(), coded.begin() + 8), (Bytes{0, 0, 0x07, 0xFF, 0, 0, 0x07, 0xFF}));
}

// Four samples, unless the format has another size.
std::string failure(SubblockFormat format, const std::string& headers, const Bytes& data = {})
{
    format.subblockSize = format.subblockSize == 0 ? 4 : format.subblockSize;
    return failureOf([&] { decode<std::int64_t>(format, {fromHex(headers), data}); });
}

TEST(SubblockReader, RefusesInvalidSubblocks)
{
    const std::string badHeader = "40207 bad read -- subblock header";
    EXPECT_EQ(failure({SINT16, 1}, ""), badHeader);
    EXPECT_EQ(failure({SINT16, 1}, "08"), badHeader);
    EXPECT_EQ(failure({SINT16, 91}, "000008"), badHeader);
    EXPECT_EQ(failure({FLOAT32, 70}, "00"), badHeader);
    EXPECT_EQ(failure({SINT16, 1}, "0801000001"), "40207 bad read -- plane length header");
    EXPECT_EQ(failure({SINT16, 1, 4, true}, "0801"), "40207 bad read -- plane layer header");
    EXPECT_EQ(failure({SINT16, 1, 4, true}, "08010701"), "40207 bad read -- plane length header");
    // 16 planes have 16 * 17 * 21 / 6 codes, from 2049 on.
    EXPECT_EQ(failure({SINT16, 1}, "0800"), badHeader);
    EXPECT_EQ(failure({SINT16, 1}, "0BB800000002", {0xFF, 0x7F}), "no error");
    EXPECT_EQ(failure({SINT16, 1}, "0BB900000002", {0xFF, 0x7F}), badHeader);
    EXPECT_EQ(failure({SINT32, 1}, "0BB900000002", {0xFF, 0x7F}), "no error");
    EXPECT_EQ(failure({SINT64, 1}, "FFFF00000002", {0xFF, 0x7F}), badHeader);

    const std::string badData = "40207 bad read -- subblock data";
    EXPECT_EQ(failure({SINT16, 1}, "080100000003", {1, 2}), badData);
    EXPECT_EQ(failure({SINT16, 1}, "0801FFFFFFFF", {1, 2}), badData);
    // Four samples have a buffer of 12, 24 and 48 bytes.
    const Bytes data(4096, 0x55);
    EXPECT_EQ(failure({SINT16, 91}, "0000080C", data), "no error");
    EXPECT_EQ(failure({SINT16, 91}, "0000080D", data), badData);
    EXPECT_EQ(failure({SINT32, 91}, "00000818", data), "no error");
    EXPECT_EQ(failure({SINT32, 91}, "00000819", data), badData);
    EXPECT_EQ(failure({SINT64, 1}, "080100000031", data), badData);
    EXPECT_EQ(failure({FLOAT64, 70}, "00000FD0", data), badData);

    // A stream that is cut, and complete ones with fewer and with more samples than requested.
    const std::string badStream = "40230 inflate(Z_NO_FLUSH): buffer error";
    const Bytes four = encode({FLOAT64, 70, 4}, Numbers{0, 0, 0, 1}).data;
    ASSERT_EQ(four.size(), 9u);
    EXPECT_EQ(failure({FLOAT64, 70}, "00000806", four), badStream);
    EXPECT_EQ(failure({FLOAT64, 70, 5}, "00000809", four), badStream);
    EXPECT_EQ(failure({FLOAT64, 70, 3}, "00000809", four), badStream);
    EXPECT_EQ(failure({FLOAT64, 70}, "00000802", {0xFF, 0xFF}),
              "40230 inflate(Z_NO_FLUSH): invalid block type");

    EXPECT_EQ(failure({UINT16, 70}, ""), "40007 unkown datatype");
    EXPECT_EQ(failure({UINT16, 1}, ""), "40007 unkown datatype");
    EXPECT_EQ(failure({FLOAT32, 91}, ""), "40007 unkown datatype");
    EXPECT_EQ(failure({SINT32, 61}, ""), "40007 unkown datatype");
    EXPECT_EQ(failure({SINT16, 4}, ""), "-1 bad transform type");
    std::vector<int> known;
    for (int transform = 0; transform < 256; ++transform)
        if (TransformUtils::isKnown(static_cast<TransformType>(transform)))
            known.push_back(transform);
    EXPECT_EQ(known, (std::vector<int>{1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93}));
}

TEST(SubblockWriter, RefusesSamplesBeyondItsCoder)
{
    const auto refusal = [](const SubblockFormat& format, const auto& samples) {
        return failureOf([&] { encode(format, samples); });
    };
    EXPECT_EQ(refusal({SINT32, 90, 64}, std::vector<std::int32_t>{32767, -32767}), "no error");
    EXPECT_EQ(refusal({SINT32, 90, 64}, std::vector<std::int32_t>{0, -32768}),
              "40007 a coefficient of more than 15 bits cannot be arithmetic coded");
    std::vector<std::int16_t> oneWidePlane(1 << 20);
    Random random(1);
    for (std::int16_t& sample : oneWidePlane)
        sample = static_cast<std::int16_t>(random.below(2));
    EXPECT_EQ(refusal({SINT16, 10, 1 << 20, true}, oneWidePlane),
              "40007 a subblock of 1048576 samples is too long for its plane lengths");
}

}} // namespace Quillmoran::Testing
