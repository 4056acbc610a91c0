#include "encode/coders/SubblockWriter.h"

#include "common/coders/BitPlanes.h"
#include "support/Kernels.h"
#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

using Bytes = SubblockWriter::Bytes;

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

template <class T>
std::size_t payloadOf(SubblockFormat format, const std::vector<T>& samples)
{
    format.type = kernelOf<T>;
    Bytes headers, data;
    SubblockWriter::create(format)->encode(samples.data(), samples.size(), headers, data);
    return data.size();
}

// Readers refuse payloads larger than one and a half times the raw size.
template <class T>
void expectCapacityForAnySamples(TransformType transform, int bits)
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
            SubblockFormat format;
            format.transform = transform;
            format.subblockSize = size;
            ASSERT_LE(payloadOf(format, samples), size * sizeof(T) * 3 / 2)
                << "transform=" << int{transform} << " size=" << size << " round=" << round;
        }
    }
}

TEST(SubblockWriter, NeverExceedsTheReadersLimit)
{
    expectCapacityForAnySamples<std::int16_t>(11, 15);
    expectCapacityForAnySamples<std::int32_t>(10, 31);
    expectCapacityForAnySamples<std::int64_t>(13, 63);
    expectCapacityForAnySamples<std::int16_t>(91, 14);
    expectCapacityForAnySamples<std::int32_t>(90, 15);
}

TEST(SubblockWriter, StoresNoisyPlanesRawAndOthersCoded)
{
    Random random(2);
    std::vector<std::int32_t> noise(4096), quiet(4096);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<std::int32_t>(random.below(1 << 12)) - (1 << 11);
        quiet[i] = random.chance(0.01) ? 1 : 0;
    }
    SubblockFormat format;
    format.transform = 11;
    format.subblockSize = 4096;
    const auto planesOf = [&](const std::vector<std::int32_t>& samples) {
        format.type = SINT32;
        Bytes headers, data;
        SubblockWriter::create(format)->encode(samples.data(), samples.size(), headers, data);
        return BitPlanes::fromCode(static_cast<std::uint32_t>(headers[0] << 8 | headers[1]) - 2049);
    };
    EXPECT_GE(planesOf(noise).rawTop, 7);
    EXPECT_EQ(planesOf(quiet).rawTop, -1);
    for (std::int32_t& sample : noise)
        sample *= 16;
    EXPECT_EQ(planesOf(noise).bottom, 4); // planes without a one-bit need no space
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

TEST(SubblockWriter, RefusesSamplesBeyondItsCoder)
{
    SubblockFormat format;
    format.transform = 90;
    format.subblockSize = 64;
    EXPECT_GT(payloadOf(format, std::vector<std::int32_t>{32767, -32767}), 0u);
    EXPECT_EQ(failureOf([&] {
                  payloadOf(format, std::vector<std::int32_t>{0, -32768});
              }),
              "40007 a coefficient of more than 15 bits cannot be arithmetic coded");
    format.transform = 10;
    format.perPlaneLengths = true;
    format.subblockSize = 1 << 20;
    std::vector<std::int16_t> oneWidePlane(1 << 20);
    Random random(1);
    for (std::int16_t& sample : oneWidePlane)
        sample = static_cast<std::int16_t>(random.below(2));
    EXPECT_EQ(failureOf([&] { payloadOf(format, oneWidePlane); }),
              "40007 a subblock of 1048576 samples is too long for its plane lengths");
    format.type = UINT8;
    EXPECT_EQ(failureOf([&] { SubblockWriter::create(format); }), "40007 unkown datatype");
}

}} // namespace Quillmoran::Testing
