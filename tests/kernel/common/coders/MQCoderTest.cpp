#include "common/coders/MQCoder.h"

#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// ISO/IEC 15444-1, table C.2.
struct PublishedState
{
    std::uint32_t Qe;
    std::size_t nextMPS, nextLPS;
    bool switchesMPS;
};
constexpr PublishedState publishedStates[] = {
    {0x5601, 1, 1, true},    {0x3401, 2, 6, false},   {0x1801, 3, 9, false},   {0x0AC1, 4, 12, false},
    {0x0521, 5, 29, false},  {0x0221, 38, 33, false}, {0x5601, 7, 6, true},    {0x5401, 8, 14, false},
    {0x4801, 9, 14, false},  {0x3801, 10, 14, false}, {0x3001, 11, 17, false}, {0x2401, 12, 18, false},
    {0x1C01, 13, 20, false}, {0x1601, 29, 21, false}, {0x5601, 15, 14, true},  {0x5401, 16, 14, false},
    {0x5101, 17, 15, false}, {0x4801, 18, 16, false}, {0x3801, 19, 17, false}, {0x3401, 20, 18, false},
    {0x3001, 21, 19, false}, {0x2801, 22, 19, false}, {0x2401, 23, 20, false}, {0x2201, 24, 21, false},
    {0x1C01, 25, 22, false}, {0x1801, 26, 23, false}, {0x1601, 27, 24, false}, {0x1401, 28, 25, false},
    {0x1201, 29, 26, false}, {0x1101, 30, 27, false}, {0x0AC1, 31, 28, false}, {0x09C1, 32, 29, false},
    {0x08A1, 33, 30, false}, {0x0521, 34, 31, false}, {0x0441, 35, 32, false}, {0x02A1, 36, 33, false},
    {0x0221, 37, 34, false}, {0x0141, 38, 35, false}, {0x0111, 39, 36, false}, {0x0085, 40, 37, false},
    {0x0049, 41, 38, false}, {0x0025, 42, 39, false}, {0x0015, 43, 40, false}, {0x0009, 44, 41, false},
    {0x0005, 45, 42, false}, {0x0001, 45, 43, false}, {0x5601, 46, 46, false}};

TEST(MQCoder, HasThePublishedStates)
{
    const MQBase::State* const entries = MQBase::table.entries;
    ASSERT_EQ(std::size(publishedStates) * 2, std::size(MQBase::table.entries));
    for (std::size_t i = 0; i < std::size(MQBase::table.entries); ++i) {
        const PublishedState& state = publishedStates[i / 2];
        const std::size_t MPS = i % 2;
        EXPECT_EQ(entries[i].Qe, state.Qe) << i;
        EXPECT_EQ(entries[i].MPS, MPS) << i;
        EXPECT_EQ(entries[i].nextMPS, entries + 2 * state.nextMPS + MPS) << i;
        EXPECT_EQ(entries[i].nextLPS, entries + 2 * state.nextLPS + (state.switchesMPS ? 1 - MPS : MPS)) << i;
    }
}

struct Decision
{
    int context;
    int bit;
    bool operator==(const Decision&) const = default;
};

Bytes encode(const std::vector<Decision>& decisions, MQEncoder& encoder)
{
    Bytes coded(decisions.size() * 3 + 16);
    encoder.begin(coded.data(), coded.size());
    for (const Decision& decision : decisions)
        encoder.encode(decision.context, decision.bit);
    coded.resize(encoder.end());
    return coded;
}

std::vector<int> decode(MQDecoder& decoder, const Bytes& coded, const std::vector<Decision>& decisions)
{
    decoder.begin(coded.data(), coded.size());
    std::vector<int> bits;
    for (const Decision& decision : decisions)
        bits.push_back(decoder.decode(decision.context));
    return bits;
}

std::vector<int> bitsOf(const std::vector<Decision>& decisions)
{
    std::vector<int> bits;
    for (const Decision& decision : decisions)
        bits.push_back(decision.bit);
    return bits;
}

// The test sequence that the JBIG2 and JPEG 2000 standards publish: one context, bits from the most
// significant. No decisions have two bytes.
TEST(MQCoder, CodesThePublishedSequence)
{
    const std::string code = "84C73BFCE1A1430402200000410DBB86F4317FFF88FF37471ADB6ADF";
    std::vector<Decision> decisions;
    for (const std::uint8_t byte :
         fromHex("00020051000000C00352872AAAAAAAAA82C02000FCD79EF6BF7FED904F46A3BF"))
        for (int bit = 7; bit >= 0; --bit)
            decisions.push_back({0, byte >> bit & 1});
    MQEncoder encoder;
    MQDecoder decoder;
    EXPECT_EQ(encode(decisions, encoder), fromHex(code));
    EXPECT_EQ(decode(decoder, fromHex(code), decisions), bitsOf(decisions));
    EXPECT_EQ(decode(decoder, fromHex(code + "FFAC"), decisions), bitsOf(decisions)); // the end marker
    EXPECT_EQ(encode({}, encoder), (Bytes{0xFF, 0x7F}));
}

TEST(MQCoder, RestoresDecisionsOfEverySkew)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const double skews[] = {0.0, 0.001, 0.05, 0.25, 0.5, 0.9, 0.999, 1.0};
        const std::uint64_t contexts = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 3 : 64;
        std::vector<Decision> decisions(random.below(seed < 100 ? 40 : 5000));
        for (Decision& decision : decisions)
            decision = {static_cast<int>(random.below(contexts)), random.chance(skews[seed % 8])};
        MQEncoder encoder;
        Bytes coded = encode(decisions, encoder);
        const Bytes exact(coded.begin(), coded.end()); // sanitizers see one byte too many
        MQDecoder decoder;
        ASSERT_EQ(decode(decoder, exact, decisions), bitsOf(decisions));
        // Bytes after a segment start where the decoder stopped reading; the encoder computes this position.
        coded.insert(coded.end(), 8, 0xFF);
        decode(decoder, coded, decisions);
        ASSERT_EQ(encoder.decoderPosition(), decoder.position());

        // Zeros in one context as runs: the same bytes.
        const auto runContext = static_cast<int>(seed % contexts);
        std::vector<MQEncoder::Step> steps;
        std::size_t run = 0;
        for (const Decision& decision : decisions) {
            if (decision == Decision{runContext, 0} && run < MQEncoder::maxRun &&
                &decision != &decisions.back()) {
                ++run;
                continue;
            }
            steps.push_back(MQEncoder::makeStep(run, decision.context, decision.bit));
            run = 0;
        }
        MQEncoder runs;
        Bytes other(coded.size() + 16);
        runs.begin(other.data(), other.size());
        runs.encode(runContext, steps);
        other.resize(runs.end());
        ASSERT_EQ(other, exact);
    }
}

// Also bytes that no encoder writes: many 0xFF, and stuffed bytes that change the byte before. The hashes (FNV-1a,
// of decisions and positions) are those of a plain implementation of the published decoder, with this coder's
// rule for the byte after an 0xFF.
TEST(MQCoder, DecodesAnyBytesLikeThePublishedDecoder)
{
    const std::uint64_t hashes[] = {0xA6E3F7626E8B71B1, 0xCA5DA175EBE585F5, 0x3610A8AA31D1CA6D,
                                    0x546B77C843FCC875, 0xAC908B3BC880C6E6, 0x1109F6F12752D450,
                                    0xD79B0DFA810BB20C, 0x01961BC225D6E86F};
    for (std::uint64_t group = 0; group < std::size(hashes); ++group) {
        std::uint64_t hash = 14695981039346656037u;
        for (std::uint64_t seed = 50 * group; seed < 50 * group + 50; ++seed) {
            Random random(seed);
            Bytes data(seed < 50 ? seed / 10 : random.below(200));
            for (std::uint8_t& byte : data)
                byte = random.chance(0.3) ? 0xFF : static_cast<std::uint8_t>(random.next() >> (seed % 3));
            MQDecoder decoder;
            decoder.begin(data.data(), data.size());
            MQDecoder::Registers registers = decoder.registers();
            for (int i = 0; i < 1500; ++i) {
                const auto context = static_cast<int>(random.below(seed % 5 + 1));
                const std::uint64_t decision = i % 2 == 0 ? decoder.decode(registers, context)
                                                          : decoder.decodeSkewed(registers, context);
                decoder.setRegisters(registers);
                hash = (hash ^ (decision + 2 * decoder.position())) * 1099511628211u;
            }
        }
        EXPECT_EQ(hash, hashes[group]) << "seeds from " << 50 * group;
    }
}

}} // namespace Quillmoran::Testing
