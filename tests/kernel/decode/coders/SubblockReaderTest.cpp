#include "decode/coders/SubblockReader.h"

#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/Random.h"
#include "support/SubblockEncoder.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace Quillmoran {
namespace {

using Testing::BandOptions;
using Testing::Bytes;
using Testing::ByteStore;
using Testing::EncodedBand;
using Testing::failureOf;
using Testing::putBigEndian;
using Testing::Random;

// The two streams of a band.
struct BandStreams
{
    explicit BandStreams(const EncodedBand& band)
        : headerStore(ByteStore::create(band.headers)), dataStore(ByteStore::create(band.data))
    {
        headers.init(headerStore.get(), true, 64);
        data.init(dataStore.get(), true, 64);
    }
    Scoped<ByteStore> headerStore, dataStore;
    StreamReader headers, data;
};

std::unique_ptr<SubblockReader> makeReader(DataType type, TransformType transform, std::size_t size,
                                           bool planeLengths = false)
{
    auto reader = SubblockReader::create({type, transform, size, planeLengths});
    reader->init();
    return reader;
}

template <class T>
std::vector<T> decodeAll(SubblockReader& reader, BandStreams& streams, std::size_t total)
{
    const std::size_t size = reader.getFormat().subblockSize;
    std::vector<T> samples(total);
    std::size_t pending = 0;
    for (std::size_t at = 0; at < total; at += size) {
        // An exact-size block, so that sanitizers see one sample too many.
        const std::size_t count = std::min(size, total - at);
        const auto block = std::make_unique<T[]>(count);
        pending = reader.loadSubblock(streams.headers, streams.data, block.get(), count, pending);
        std::memcpy(samples.data() + at, block.get(), count * sizeof(T));
    }
    return samples;
}

// Samples of many magnitudes with runs of zeros.
template <class T>
std::vector<T> makeSamples(Random& random, std::size_t count, int bits)
{
    std::vector<T> samples(count);
    int scale = bits;
    for (std::size_t i = 0; i < count; ++i) {
        if (i % 50 == 0)
            scale = static_cast<int>(random.between(0, bits));
        if (scale == 0)
            continue;
        const std::uint64_t magnitude = random.next() >> (64 - scale);
        samples[i] = static_cast<T>(random.chance(0.5) ? magnitude : 0 - magnitude);
    }
    return samples;
}

template <class T>
void expectIntegerRoundTrip(DataType type, TransformType transform, int bits, BandOptions options)
{
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        Random random(seed);
        options.transform = transform;
        options.subblockSize = 1 + random.below(200);
        const auto samples = makeSamples<T>(random, random.below(3000), bits);
        BandStreams streams(Testing::encodeBand(samples, options, false));
        const auto reader = makeReader(type, transform, options.subblockSize, options.perPlaneLengths);
        ASSERT_EQ(decodeAll<T>(*reader, streams, samples.size()), samples)
            << "transform=" << int{transform} << " seed=" << seed << " raw=" << options.rawPlanes;
    }
}

TEST(MQInteger, RestoresSamplesOfEveryWidth)
{
    for (const int rawPlanes : {0, 1, 3, 64}) {
        for (const bool planeLengths : {false, true}) {
            BandOptions options;
            options.rawPlanes = rawPlanes;
            options.perPlaneLengths = planeLengths;
            expectIntegerRoundTrip<std::int16_t>(SINT16, 1, 15, options);
            expectIntegerRoundTrip<std::int32_t>(SINT32, 13, 31, options);
            expectIntegerRoundTrip<std::int64_t>(SINT64, 3, 63, options);
        }
    }
}

TEST(MQInteger, RestoresTheSmallestInteger)
{
    const std::vector<std::int16_t> samples = {INT16_MIN, INT16_MAX, 0, -1, INT16_MIN};
    for (const int rawPlanes : {0, 5, 16}) {
        BandOptions options;
        options.rawPlanes = rawPlanes;
        BandStreams streams(Testing::encodeBand(samples, options, false));
        EXPECT_EQ(decodeAll<std::int16_t>(*makeReader(SINT16, 1, 64), streams, samples.size()), samples);
    }
}

TEST(MQInteger, LeavesDroppedPlanesZero)
{
    const std::vector<std::int32_t> samples = {1000, -1001, 7, -8, 0, 15};
    BandOptions options;
    options.droppedPlanes = 3;
    BandStreams streams(Testing::encodeBand(samples, options, false));
    EXPECT_EQ(decodeAll<std::int32_t>(*makeReader(SINT32, 1, 64), streams, samples.size()),
              (std::vector<std::int32_t>{1000, -1000, 0, -8, 0, 8}));
}

TEST(ACInteger, RestoresSamplesOfUpToFifteenBits)
{
    for (const int bits : {1, 2, 7, 8, 9, 15}) {
        expectIntegerRoundTrip<std::int16_t>(SINT16, 91, bits, {});
        expectIntegerRoundTrip<std::int32_t>(SINT32, 83, bits, {});
        expectIntegerRoundTrip<std::int64_t>(SINT64, 90, bits, {});
    }
}

template <class T>
void expectFloatRoundTrip(DataType type)
{
    Random random(5);
    std::vector<T> samples(700);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const std::uint64_t bits = random.next();
        if (i / 64 % 3 != 0)
            std::memcpy(&samples[i], &bits, sizeof(T));
    }
    samples[70] = T(-0.0);
    BandOptions options;
    options.transform = 70;
    BandStreams streams(Testing::encodeBand(samples, options, false));
    const auto decoded = decodeAll<T>(*makeReader(type, 70, 64), streams, samples.size());
    EXPECT_EQ(std::memcmp(decoded.data(), samples.data(), samples.size() * sizeof(T)), 0);
}

TEST(GZFloatingPoint, RestoresEveryBitPattern)
{
    expectFloatRoundTrip<float>(FLOAT32);
    expectFloatRoundTrip<double>(FLOAT64);
}

std::string loadFailure(DataType type, TransformType transform, const Bytes& headers, const Bytes& data,
                        bool planeLengths = false, std::size_t count = 4)
{
    BandStreams streams(EncodedBand{headers, data});
    const auto reader = makeReader(type, transform, count, planeLengths);
    std::vector<double> out(count);
    return failureOf([&] { reader->loadSubblock(streams.headers, streams.data, out.data(), count, 0); });
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
    const EncodedBand good = Testing::encodeBand(four, options, false);
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

// After any skip, the next subblock is the same as when reading from the start.
TEST(SubblockReader, SkipsToTheSameSamples)
{
    Random random(17);
    constexpr std::size_t size = 16, total = size * 120 + 5;
    auto samples = makeSamples<std::int32_t>(random, total, 12);
    std::fill(samples.begin() + 40 * size, samples.begin() + 75 * size, 0);
    for (const TransformType transform : std::initializer_list<TransformType>{1, 91}) {
        BandOptions options;
        options.transform = transform;
        options.subblockSize = size;
        options.maxZeroRun = 9;
        const EncodedBand band = Testing::encodeBand(samples, options, false);
        for (std::size_t skip = 0; skip * size < total; ++skip) {
            BandStreams streams(band);
            const auto reader = makeReader(SINT32, transform, size);
            const std::size_t count = std::min(size, total - skip * size);
            std::vector<std::int32_t> out(count);
            const std::size_t pending = reader->skipSubblocks(skip, streams.headers, streams.data, 0);
            reader->loadSubblock(streams.headers, streams.data, out.data(), count, pending);
            ASSERT_TRUE(std::equal(out.begin(), out.end(),
                                   samples.begin() + static_cast<std::ptrdiff_t>(skip * size)))
                << "transform=" << int{transform} << " skip=" << skip;
        }
    }
}

TEST(SubblockReader, CountsZeroRunsAcrossCalls)
{
    BandStreams streams(EncodedBand{header<std::uint16_t>(2047), {}});
    const auto reader = makeReader(SINT16, 1, 8);
    std::int16_t out[8];
    std::size_t pending = reader->loadSubblock(streams.headers, streams.data, out, 8, 0);
    EXPECT_EQ(pending, 2047u);
    pending = reader->skipSubblocks(2000, streams.headers, streams.data, pending);
    EXPECT_EQ(pending, 47u);
    std::memset(out, 0xFF, sizeof out);
    EXPECT_EQ(reader->loadSubblock(streams.headers, streams.data, out, 8, pending), 46u);
    EXPECT_EQ(out[7], 0);
}

} // namespace
} // namespace Quillmoran
