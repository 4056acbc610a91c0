#include "common/coders/ArithmeticCoder.h"

#include "support/Random.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::Random;
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
        switch (step.kind) {
        case Step::Symbol:
            encoder.encode(step.value, symbols);
            break;
        case Step::ModelBit:
            encoder.encode(static_cast<int>(step.value), bit);
            break;
        case Step::RawBit:
            encoder.putBit(static_cast<int>(step.value));
            break;
        case Step::RawBits:
            encoder.putBits(step.value, step.bits);
            break;
        }
    }
    coded.resize(encoder.end());
    return coded;
}

std::size_t countMismatches(const Bytes& coded, const std::vector<Step>& steps, std::uint32_t alphabet)
{
    const auto block = std::make_unique<std::uint8_t[]>(coded.size());
    std::copy(coded.begin(), coded.end(), block.get());
    ACBase::DataModel symbols;
    ACBase::BitModel bit;
    symbols.setAlphabet(alphabet);
    ACDecoder decoder;
    decoder.begin(block.get(), coded.size());
    std::size_t mismatches = 0;
    for (const Step& step : steps) {
        const std::uint32_t value = step.kind == Step::Symbol     ? decoder.decode(symbols)
                                    : step.kind == Step::ModelBit ? decoder.decode(bit)
                                    : step.kind == Step::RawBit   ? decoder.getBit()
                                                                  : decoder.getBits(step.bits);
        mismatches += value != step.value;
    }
    return mismatches;
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
            EXPECT_EQ(countMismatches(encode(steps, alphabet), steps, alphabet), 0u)
                << "alphabet=" << alphabet << " repeat=" << repeat;
        }
    }
}

// The last symbol and raw bits of ones cause many carries.
TEST(ArithmeticCoder, CarriesIntoTheBytesAlreadyWritten)
{
    for (const std::uint32_t alphabet : {3u, 17u, 128u}) {
        std::vector<Step> steps;
        for (int i = 0; i < 5000; ++i) {
            steps.push_back({Step::Symbol, i % 97 == 0 ? 0 : alphabet - 1});
            steps.push_back({Step::RawBits, 0xFF, 8});
            steps.push_back({Step::ModelBit, i % 50 != 0});
        }
        EXPECT_EQ(countMismatches(encode(steps, alphabet), steps, alphabet), 0u) << "alphabet=" << alphabet;
    }
}

TEST(ArithmeticCoder, WritesOneByteForEmptyInput)
{
    EXPECT_EQ(encode({}, 3), (Bytes{0x01}));
}

TEST(ArithmeticCoder, CodesSkewedSymbolsNearTheirEntropy)
{
    Random random(11);
    std::vector<Step> steps(50000);
    for (Step& step : steps)
        step = {Step::Symbol, random.chance(0.9) ? 0u : static_cast<std::uint32_t>(random.between(1, 31))};
    const double entropy = -0.9 * std::log2(0.9) - 0.1 * std::log2(0.1 / 31);
    const double bits = 8.0 * static_cast<double>(encode(steps, 32).size()) / 50000;
    EXPECT_GT(bits, entropy * 0.99);
    EXPECT_LT(bits, entropy * 1.02);
}

TEST(ArithmeticCoder, ResizesAUsedModel)
{
    ACBase::DataModel model;
    for (const std::uint32_t alphabet : {200u, 3u, 40u, 40u}) {
        model.setAlphabet(alphabet);
        Bytes coded(4096);
        ACEncoder encoder;
        encoder.begin(coded.data(), coded.size());
        for (std::uint32_t i = 0; i < 500; ++i)
            encoder.encode(i * 7 % alphabet, model);
        const std::size_t length = encoder.end();
        model.setAlphabet(alphabet);
        ACDecoder decoder;
        decoder.begin(coded.data(), length);
        for (std::uint32_t i = 0; i < 500; ++i)
            ASSERT_EQ(decoder.decode(model), i * 7 % alphabet) << "alphabet=" << alphabet << " i=" << i;
    }
}

// Sanitizers check the end of the block and the tables. Bytes of ones are outside the coder's interval.
TEST(ArithmeticCoder, StaysInsideItsTablesWithDamagedData)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        Random random(seed);
        const std::size_t length = random.below(40);
        const auto block = std::make_unique<std::uint8_t[]>(length);
        for (std::size_t i = 0; i < length; ++i)
            block[i] = static_cast<std::uint8_t>(seed % 2 ? random.next() : 0xFF);
        for (const std::uint32_t alphabet : alphabets) {
            ACBase::DataModel model;
            model.setAlphabet(alphabet);
            ACDecoder decoder;
            decoder.begin(block.get(), length);
            for (int i = 0; i < 2000; ++i) {
                ASSERT_LT(decoder.decode(model), alphabet);
                if (i % 3 == 0)
                    decoder.getBits(8);
                if (i % 7 == 0)
                    decoder.getBit();
            }
        }
    }
}

} // namespace
} // namespace Quillmoran
