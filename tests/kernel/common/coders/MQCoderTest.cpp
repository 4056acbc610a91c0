#include "common/coders/MQCoder.h"

#include "support/Random.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::Random;
using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(const std::string& hex)
{
    Bytes bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

struct Decision
{
    int context;
    int bit;
};

Bytes encode(const std::vector<Decision>& decisions)
{
    Bytes coded(decisions.size() * 2 + 16);
    MQEncoder encoder;
    encoder.begin(coded.data(), coded.size());
    for (const Decision& decision : decisions)
        encoder.encode(decision.context, decision.bit);
    coded.resize(encoder.end());
    return coded;
}

// Counts the wrong decisions when decoding from an exact-size heap block.
std::size_t countMismatches(const Bytes& coded, const std::vector<Decision>& decisions)
{
    const auto block = std::make_unique<std::uint8_t[]>(coded.size());
    std::copy(coded.begin(), coded.end(), block.get());
    MQDecoder decoder;
    decoder.begin(block.get(), coded.size());
    std::size_t mismatches = 0;
    for (const Decision& decision : decisions)
        mismatches += decoder.decode(decision.context) != decision.bit;
    return mismatches;
}

// The test sequence that the JBIG2 and JPEG 2000 standards publish: one context, bits from the most
// significant.
const char publishedInput[] = "00020051000000C00352872AAAAAAAAA82C02000FCD79EF6BF7FED904F46A3BF";
const char publishedCode[] = "84C73BFCE1A1430402200000410DBB86F4317FFF88FF37471ADB6ADF";

std::vector<Decision> publishedDecisions()
{
    std::vector<Decision> decisions;
    for (const std::uint8_t byte : fromHex(publishedInput))
        for (int bit = 7; bit >= 0; --bit)
            decisions.push_back({0, byte >> bit & 1});
    return decisions;
}

TEST(MQCoder, EncodesThePublishedSequence)
{
    EXPECT_EQ(encode(publishedDecisions()), fromHex(publishedCode));
}

TEST(MQCoder, DecodesThePublishedSequenceWithAndWithoutItsEndMarker)
{
    const std::string code = publishedCode;
    EXPECT_EQ(countMismatches(fromHex(code), publishedDecisions()), 0u);
    EXPECT_EQ(countMismatches(fromHex(code + "FFAC"), publishedDecisions()), 0u);
}

TEST(MQCoder, WritesTwoBytesForEmptyInput)
{
    const Bytes coded = encode({});
    EXPECT_EQ(coded, (Bytes{0xFF, 0x7F}));
    MQDecoder decoder;
    decoder.begin(coded.data(), coded.size());
    EXPECT_EQ(decoder.position(), 2u);
}

TEST(MQCoder, RestoresDecisionsOfEverySkew)
{
    for (std::uint64_t seed = 0; seed < 60; ++seed) {
        Random random(seed);
        const double skews[] = {0.0, 0.001, 0.05, 0.3, 0.5, 0.9, 0.999, 1.0};
        const double skew = skews[seed % 8];
        const std::uint64_t contexts = seed % 3 == 0 ? 1 : 64;
        std::vector<Decision> decisions(random.below(5000));
        for (Decision& decision : decisions)
            decision = {static_cast<int>(random.below(contexts)), random.chance(skew)};
        EXPECT_EQ(countMismatches(encode(decisions), decisions), 0u) << "seed=" << seed;
    }
}

// Always the less probable symbol: the longest carries and the most stuffing.
TEST(MQCoder, RestoresTheLessProbableDecisions)
{
    for (int period = 1; period < 40; ++period) {
        const MQBase::State* state = MQBase::table.entries;
        std::vector<Decision> decisions;
        for (int i = 0; i < 3000; ++i) {
            const bool fight = i % period != 0;
            const int bit = static_cast<int>(fight ? 1 - state->MPS : state->MPS);
            decisions.push_back({5, bit});
            state = fight ? state->nextLPS : state->nextMPS;
        }
        EXPECT_EQ(countMismatches(encode(decisions), decisions), 0u) << "period=" << period;
    }
}

// Bytes after a segment start where the decoder stopped reading; the encoder computes this position.
TEST(MQCoder, PredictsThePositionOfTheDecoder)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        Random random(seed);
        std::vector<Decision> decisions(random.below(seed < 100 ? 40 : 3000));
        for (Decision& decision : decisions)
            decision = {static_cast<int>(random.below(3)),
                        random.chance(static_cast<double>(seed % 5) * 0.25)};
        Bytes coded(decisions.size() * 3 + 16);
        MQEncoder encoder;
        encoder.begin(coded.data(), coded.size());
        for (const Decision& decision : decisions)
            encoder.encode(decision.context, decision.bit);
        coded.resize(encoder.end());
        coded.insert(coded.end(), 8, 0xFF);
        MQDecoder decoder;
        decoder.begin(coded.data(), coded.size());
        for (const Decision& decision : decisions)
            ASSERT_EQ(decoder.decode(decision.context), decision.bit);
        EXPECT_EQ(encoder.decoderPosition(), decoder.position()) << "seed=" << seed;
    }
}

TEST(MQCoder, CodesARunLikeItsDecisions)
{
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        Random random(seed);
        Bytes one(1 << 16), other(1 << 16);
        MQEncoder single, runs;
        single.begin(one.data(), one.size());
        runs.begin(other.data(), other.size());
        for (int i = 0; i < 30; ++i) {
            const int context = static_cast<int>(random.below(2));
            const int bit = random.chance(0.2) ? 1 : 0;
            const std::uint64_t count = random.below(i % 5 == 0 ? 2000 : 5);
            for (std::uint64_t k = 0; k < count; ++k)
                single.encode(context, bit);
            runs.encodeRun(context, bit, count);
        }
        one.resize(single.end());
        other.resize(runs.end());
        ASSERT_EQ(one, other) << "seed=" << seed;
    }
}

TEST(MQCoder, CodesSkewedDecisionsNearTheirEntropy)
{
    Random random(7);
    std::vector<Decision> decisions(100000);
    for (Decision& decision : decisions)
        decision = {0, random.chance(0.05)};
    const double bits = 8.0 * static_cast<double>(encode(decisions).size()) / 100000;
    EXPECT_GT(bits, 0.286); // the entropy of 0.05
    EXPECT_LT(bits, 0.310);
}

TEST(MQCoder, KeepsReturningDecisionsPastTheEnd)
{
    for (std::size_t length = 0; length < 4; ++length) {
        const auto block = std::make_unique<std::uint8_t[]>(length);
        std::fill_n(block.get(), length, std::uint8_t{0xFF});
        MQDecoder decoder;
        decoder.begin(block.get(), length);
        for (int i = 0; i < 10000; ++i)
            decoder.decode(i % 64);
        EXPECT_EQ(decoder.position(), length);
    }
}

TEST(MQCoder, ReadsOnesAfterASingleByte)
{
    const Bytes one = {0x5A};
    const Bytes padded = {0x5A, 0xFF, 0xFF, 0xFF, 0xFF};
    MQDecoder a, b;
    a.begin(one.data(), one.size());
    b.begin(padded.data(), padded.size());
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(a.decode(i % 3), b.decode(i % 3)) << "i=" << i;
}

TEST(MQCoder, ConsumesTheByteAfterAnUnstuffedMarker)
{
    // 0xFF 0x95 is not a stuffed pair; the bytes after it are still decoded.
    const Bytes first = {0x12, 0xFF, 0x95, 0x00, 0x00, 0x00};
    const Bytes second = {0x12, 0xFF, 0x95, 0x7F, 0x33, 0x91};
    MQDecoder a, b;
    a.begin(first.data(), first.size());
    b.begin(second.data(), second.size());
    int differences = 0;
    for (int i = 0; i < 200; ++i)
        differences += a.decode(0) != b.decode(0);
    EXPECT_EQ(a.position(), first.size());
    EXPECT_NE(differences, 0);
}

// The published decoder, step by step, with this coder's rule for the byte after an 0xFF.
class PlainDecoder
{
public:
    explicit PlainDecoder(const Bytes& data) : m_data(data)
    {
        C = std::uint32_t{byteAt(0)} << 16;
        m_next = 1;
        byteIn();
        C <<= 7;
        CT -= 7;
        for (auto& context : m_contexts)
            context = MQBase::table.entries;
    }

    int decode(int index)
    {
        const MQBase::State*& context = m_contexts[index];
        const MQBase::State state = *context;
        A -= state.Qe;
        const bool lower = C >> 16 < state.Qe;
        const bool isLPS = lower ? A >= state.Qe : A < 0x8000 && A < state.Qe;
        if (lower)
            A = state.Qe;
        else
            C -= state.Qe << 16;
        if (A < 0x8000)
            context = isLPS ? state.nextLPS : state.nextMPS;
        for (; A < 0x8000; A <<= 1, C <<= 1, --CT)
            if (CT == 0)
                byteIn();
        return static_cast<int>(isLPS ? 1 - state.MPS : state.MPS);
    }

    std::size_t position() const { return std::min(m_next, m_data.size()); }

private:
    std::uint8_t byteAt(std::size_t index) const { return index < m_data.size() ? m_data[index] : 0xFF; }
    void byteIn()
    {
        CT = 8;
        if (m_next >= m_data.size()) {
            C += 0xFF00;
            ++m_next;
            return;
        }
        const std::uint32_t byte = byteAt(m_next++);
        if (byteAt(m_next - 2) != 0xFF) {
            C += byte << 8;
        } else if (byte < 0x90) {
            C += byte << 9;
            CT = 7;
        } else {
            C += 0xFF00;
        }
    }

    Bytes m_data;
    std::size_t m_next = 0;
    std::uint32_t A = 0x8000;
    std::uint32_t C = 0;
    std::uint32_t CT = 0;
    const MQBase::State* m_contexts[MQBase::numContexts];
};

// Also bytes that no encoder writes: many 0xFF, and stuffed bytes that change the byte before.
TEST(MQCoder, DecodesAnyBytesLikeThePublishedDecoder)
{
    for (std::uint64_t seed = 0; seed < 400; ++seed) {
        Random random(seed);
        Bytes data(random.below(200));
        for (std::uint8_t& byte : data)
            byte = random.chance(0.3) ? 0xFF : static_cast<std::uint8_t>(random.next() >> (seed % 3));
        PlainDecoder plain(data);
        MQDecoder decoder;
        decoder.begin(data.data(), data.size());
        MQDecoder::Registers registers = decoder.registers();
        const std::uint64_t contexts = seed % 5 + 1;
        for (int i = 0; i < 1500; ++i) {
            const auto context = static_cast<int>(random.below(contexts));
            const std::uint32_t decision =
                i % 2 == 0 ? decoder.decode(registers, context) : decoder.decodeSkewed(registers, context);
            ASSERT_EQ(static_cast<int>(decision), plain.decode(context)) << "seed=" << seed << " i=" << i;
            decoder.setRegisters(registers);
            ASSERT_EQ(decoder.position(), plain.position()) << "seed=" << seed << " i=" << i;
        }
    }
}

TEST(MQCoder, StaysInItsNonAdaptiveState)
{
    const MQBase::State& fixed = MQBase::table.entries[92];
    EXPECT_EQ(fixed.nextMPS, &fixed);
    EXPECT_EQ(fixed.nextLPS, &fixed);
    for (const MQBase::State& state : MQBase::table.entries) {
        EXPECT_EQ(state.nextMPS->MPS, state.MPS);
        EXPECT_GE(state.nextMPS, MQBase::table.entries);
        EXPECT_LT(state.nextLPS, std::end(MQBase::table.entries));
    }
}

} // namespace
} // namespace Quillmoran
