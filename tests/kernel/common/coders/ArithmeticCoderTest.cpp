#include "common/coders/ArithmeticCoder.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

using Bytes = std::vector<std::uint8_t>;

// A step of a test: a symbol of a model, an adaptive bit or raw bits.
struct Step
{
    enum Kind
    {
        Symbol,
        ModelBit,
        RawBit,
        RawBits
    } kind;
    std::uint32_t value;
    int bits = 0;
};

Bytes encode(const std::vector<Step>& steps, std::uint32_t alphabet)
{
    Bytes coded(steps.size() * 4 + 16);
    ACBase::DataModel symbols;
    ACBase::BitModel bit;
    symbols.setAlphabet(alphabet);
    ACEncoder encoder;
    encoder.begin(coded.data(), coded.size());
    for (const Step& step : steps) {
        if (step.kind == Step::Symbol)
            encoder.encode(step.value, symbols);
        else if (step.kind == Step::ModelBit)
            encoder.encode(static_cast<int>(step.value), bit);
        else if (step.kind == Step::RawBit)
            encoder.putBit(static_cast<int>(step.value));
        else
            encoder.putBits(step.value, step.bits);
    }
    coded.resize(encoder.end());
    return coded;
}

// The values of the steps, of which only the kinds are used.
std::vector<std::uint32_t> decode(const std::uint8_t* coded, std::size_t length,
                                  const std::vector<Step>& steps, std::uint32_t alphabet)
{
    ACBase::DataModel symbols;
    ACBase::BitModel bit;
    symbols.setAlphabet(alphabet);
    ACDecoder decoder;
    decoder.begin(coded, length);
    std::vector<std::uint32_t> values;
    for (const Step& step : steps)
        values.push_back(step.kind == Step::Symbol     ? decoder.decode(symbols)
                         : step.kind == Step::ModelBit ? decoder.decode(bit)
                         : step.kind == Step::RawBit   ? decoder.getBit()
                                                       : decoder.getBits(step.bits));
    return values;
}

void expectRestored(const Bytes& coded, const std::vector<Step>& steps, std::uint32_t alphabet)
{
    std::vector<std::uint32_t> expected;
    for (const Step& step : steps)
        expected.push_back(step.value);
    EXPECT_TRUE(decode(coded.data(), coded.size(), steps, alphabet) == expected) << alphabet;
}

// The limits of table sizes: no table up to 16 symbols, then 3, 4, 5 ... bits.
const std::uint32_t alphabets[] = {1, 2, 3, 15, 16, 17, 32, 33, 64, 65, 128, 129, 256, 1000};

TEST(ArithmeticCoder, RestoresMixedSymbolsAndBits)
{
    std::uint64_t seed = 0;
    for (const std::uint32_t alphabet : alphabets) {
        for (int repeat = 0; repeat < 6; ++repeat) {
            Random random(++seed);
            const bool skewed = repeat % 2 == 0;
            std::vector<Step> steps(random.below(20000));
            for (Step& step : steps) {
                const auto kind = static_cast<Step::Kind>(repeat < 2 ? 0 : random.below(4));
                const int bits = static_cast<int>(random.between(1, 8));
                const double share = skewed ? std::pow(random.real(), 6) : random.real();
                const auto symbol = static_cast<std::uint32_t>(share * alphabet);
                step = {kind,
                        kind == Step::Symbol    ? symbol
                        : kind == Step::RawBits ? static_cast<std::uint32_t>(random.below(1u << bits))
                        : skewed                ? random.chance(0.02)
                                                : random.chance(0.5),
                        bits};
            }
            expectRestored(encode(steps, alphabet), steps, alphabet);
        }
    }
}

// By hand: 2^24 and half of it are added to the base, depending on the length of the interval.
TEST(ArithmeticCoder, EndsWithTheFewestBytes)
{
    EXPECT_EQ(encode({}, 3), (Bytes{0x01}));
    EXPECT_EQ(encode({{Step::RawBits, 0, 6}}, 3), (Bytes{0x01}));
    EXPECT_EQ(encode({{Step::RawBits, 0, 7}}, 3), (Bytes{0x00, 0x80}));
}

// Both kinds of models halve their counts several times. The bytes are those of a plain implementation of the
// published algorithm.
TEST(ArithmeticCoder, AdaptsLikeThePublishedCoder)
{
    struct Case
    {
        std::uint32_t alphabet;
        std::size_t size;
        Bytes end;
    };
    const Case cases[] = {{3, 7470, {0x11, 0x2A, 0xBD, 0x10, 0x45, 0x5B, 0x48, 0x68}},
                          {17, 18582, {0xD3, 0xF8, 0xF8, 0x3C, 0xE4, 0x36, 0xD8, 0xC3}},
                          {128, 27755, {0x04, 0x0C, 0x8B, 0x08, 0x8C, 0xE5, 0xC4, 0xDE}}};
    for (const Case& c : cases) {
        std::vector<Step> steps;
        for (std::uint32_t i = 0; i < 40000; ++i) {
            const std::uint64_t square = std::uint64_t{i} * i;
            const std::uint64_t symbol = i % 3 != 0 ? square / 7 : i % 5;
            steps.push_back({Step::Symbol, static_cast<std::uint32_t>(symbol % c.alphabet)});
            steps.push_back({Step::ModelBit, i % 4097 < 3 && c.alphabet != 17 ? 1u : 0u});
        }
        const Bytes coded = encode(steps, c.alphabet);
        ASSERT_EQ(coded.size(), c.size);
        EXPECT_EQ(Bytes(coded.end() - 8, coded.end()), c.end);
        expectRestored(coded, steps, c.alphabet);
    }
}

// Bytes of ones are outside the coder's interval.
TEST(ArithmeticCoder, ReadsZerosAfterDamagedDataAndStaysInsideItsTables)
{
    std::vector<Step> steps;
    for (int i = 0; i < 700; ++i)
        for (const Step& step : {Step{Step::Symbol, 0}, Step{Step::RawBits, 0, 8}, Step{Step::RawBit, 0}})
            steps.push_back(step);
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        Random random(seed);
        const std::size_t length = random.below(40);
        Bytes ones(4096, 0xFF), zeros(4096, 0);
        for (std::size_t i = 0; i < length; ++i)
            ones[i] = zeros[i] = static_cast<std::uint8_t>(seed % 2 ? random.next() : 0xFF);
        for (const std::uint32_t alphabet : alphabets) {
            const auto values = decode(ones.data(), length, steps, alphabet);
            ASSERT_TRUE(values == decode(zeros.data(), zeros.size(), steps, alphabet)) << seed;
            for (std::size_t i = 0; i < steps.size(); i += 3)
                ASSERT_LT(values[i], alphabet);
        }
    }
}

}} // namespace Quillmoran::Testing
