#include "decode/bands/SubbandSource.h"

#include "decode/MemoryBudget.h"
#include "decode/bands/SubblockCheckpoints.h"
#include "decode/coders/SubblockReader.h"
#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/ForwardWavelet.h"
#include "support/Kernels.h"
#include "support/Random.h"
#include "support/SubblockEncoder.h"
#include <vxunpack/Base.h>

#include <cstring>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::BandOptions;
using Testing::Bytes;
using Testing::ByteStore;
using Testing::EncodedBand;
using Testing::kernelOf;
using Testing::Lifting;
using Testing::Random;

// The bands of a channel in memory, and the chain over them.
template <class T>
class Chain
{
public:
    Chain(std::vector<T> samples, TransformType transform, std::size_t levels, std::size_t subblockSize,
          std::size_t blockSize, bool interleaved)
        : m_bands(Testing::decompose(std::move(samples), Lifting::of(transform), levels)),
          m_transform(transform)
    {
        BandOptions options;
        options.transform = transform;
        options.subblockSize = subblockSize;
        options.maxZeroRun = 3;
        Bytes all = {0xEE}; // bands do not start at the beginning of a file
        struct Place
        {
            std::size_t headers, headerBytes, data, dataBytes;
        };
        std::vector<Place> places;
        for (const auto& band : m_bands) {
            const EncodedBand encoded = Testing::encodeBand(band, options, interleaved);
            places.push_back({all.size(), encoded.headers.size(), all.size() + encoded.headers.size(),
                              encoded.data.size()});
            all.insert(all.end(), encoded.headers.begin(), encoded.headers.end());
            all.insert(all.end(), encoded.data.begin(), encoded.data.end());
        }
        m_store = Scoped<ByteStore>(ByteStore::create(std::move(all)));
        m_reader = SubblockReader::create({kernelOf<T>, transform, subblockSize});
        m_reader->init();
        for (std::size_t i = 0; i < m_bands.size(); ++i) {
            const auto position = [](std::size_t value) { return static_cast<std::int64_t>(value); };
            const BandRanges ranges{
                {m_store.get(), position(places[i].headers), position(places[i].headerBytes)},
                {m_store.get(), position(places[i].data), position(places[i].dataBytes)},
                interleaved};
            auto leaf = SubbandSource::createSubbandReader(*m_reader, ranges, position(m_bands[i].size()));
            m_root = i == 0 ? std::move(leaf)
                            : SubbandSource::createPipeStage(blockSize, std::move(m_root), std::move(leaf));
        }
    }

    SubbandSource& root() { return *m_root; }
    SubblockReader& reader() { return *m_reader; }
    const ByteStore& store() const { return *m_store; }
    // The result of the plain inverse: for integers the original samples.
    std::vector<T> expected() const
    {
        return Testing::compose(m_bands, Lifting::of(m_transform), m_bands.size());
    }

    // Every second call decodes the subblocks first, from the last to the first.
    std::vector<T> read(std::size_t count)
    {
        if (++m_reads % 2 == 0)
            decodeAhead(count);
        const auto block = std::make_unique<T[]>(count);
        const std::size_t got = m_root->get(block.get(), count);
        return std::vector<T>(block.get(), block.get() + got);
    }

private:
    void decodeAhead(std::size_t count)
    {
        std::vector<CodedSubblock> work;
        m_root->prepare(count, work);
        for (; work.size() >= 2; work.resize(work.size() - 2))
            m_reader->decodeTwo(work[work.size() - 2], work.back());
        if (!work.empty())
            m_reader->decode(work.front());
    }

    std::size_t m_reads = 0;
    std::vector<std::vector<T>> m_bands;
    TransformType m_transform;
    Scoped<ByteStore> m_store;
    std::unique_ptr<SubblockReader> m_reader;
    std::unique_ptr<SubbandSource> m_root;
};

// A random walk with jumps, whose coefficients fit into 16 bits and all coders.
template <class T>
std::vector<T> makeSamples(Random& random, std::size_t count)
{
    std::vector<T> samples(count);
    double value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value += (random.real() - 0.5) * 40;
        if (random.chance(0.02))
            value = (random.real() - 0.5) * 2000;
        samples[i] = i / 40 % 4 == 3 ? T(0) : static_cast<T>(value);
    }
    return samples;
}

template <class T>
std::vector<T> cut(const std::vector<T>& samples, std::size_t position, std::size_t count)
{
    position = std::min(position, samples.size());
    count = std::min(count, samples.size() - position);
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(position);
    return std::vector<T>(first, first + static_cast<std::ptrdiff_t>(count));
}

template <class T>
void expectSameFromAnyStart(TransformType transform)
{
    for (std::size_t length = 0; length <= 260; length += length < 70 ? 1 : 19) {
        Random random(length * 7 + transform);
        const std::size_t levels = 1 + random.below(7);
        const std::size_t subblockSize =
            6 + random.below(35); // smaller ones are too small for their payloads
        const std::size_t blockSize = 1 + random.below(length < 40 ? 8 : 70);
        const auto samples = makeSamples<T>(random, length);
        Chain<T> chain(samples, transform, levels, subblockSize, blockSize, length % 2 == 0);
        const std::vector<T> expected = chain.expected();
        if constexpr (std::is_integral_v<T>) {
            ASSERT_EQ(expected, samples); // the plain inverse is exact
        }
        const auto label = [&](std::size_t position) {
            return "transform=" + std::to_string(transform) + " length=" + std::to_string(length) +
                   " levels=" + std::to_string(levels) + " subblock=" + std::to_string(subblockSize) +
                   " block=" + std::to_string(blockSize) + " position=" + std::to_string(position);
        };
        // From every position, in one read and in small ones.
        for (std::size_t position = 0; position <= length + 2; position += 1 + length / 60) {
            chain.root().begin(static_cast<std::int64_t>(position));
            ASSERT_EQ(chain.read(length + 1), cut(expected, position, length + 1)) << label(position);
            chain.root().end();
        }
        chain.root().begin(0);
        std::vector<T> pieces;
        for (std::vector<T> piece; !(piece = chain.read(1 + random.below(9))).empty();)
            pieces.insert(pieces.end(), piece.begin(), piece.end());
        ASSERT_EQ(pieces, expected) << label(0);
        // Any sequence of seeks.
        for (int i = 0; i < 60; ++i) {
            const std::size_t position = random.below(length + 3);
            const std::size_t count = random.chance(0.2) ? 0 : random.below(30);
            chain.root().seek(static_cast<std::int64_t>(position));
            ASSERT_EQ(chain.read(count), cut(expected, position, count)) << label(position) << " seek " << i;
            ASSERT_EQ(chain.read(3), cut(expected, position + count, 3))
                << label(position) << " after seek " << i;
        }
        chain.root().end();
        ASSERT_EQ(chain.store().openCount(), 0);
    }
}

class SubbandSourceLifting : public testing::TestWithParam<int>
{};

TEST_P(SubbandSourceLifting, ReturnsTheSameSamplesFromAnyPosition)
{
    const auto transform = static_cast<TransformType>(GetParam());
    expectSameFromAnyStart<std::int16_t>(transform);
    expectSameFromAnyStart<std::int32_t>(transform);
    expectSameFromAnyStart<std::int64_t>(transform);
    const auto arithmetic = static_cast<TransformType>(transform + 80);
    expectSameFromAnyStart<std::int32_t>(arithmetic);
    const auto deflated = static_cast<TransformType>(transform + 60);
    expectSameFromAnyStart<float>(deflated);
    expectSameFromAnyStart<double>(deflated);
}

INSTANTIATE_TEST_SUITE_P(AllVariants, SubbandSourceLifting, testing::Values(1, 3, 10, 11, 13));

TEST(SubbandSource, SeeksBackwardsWithoutReadingAllHeaders)
{
    Random random(1);
    const std::size_t count = 200000;
    std::vector<std::int32_t> samples(count);
    for (auto& sample : samples)
        sample = static_cast<std::int32_t>(random.between(-100, 100));
    Chain<std::int32_t> chain(samples, 1, 1, 8, 64, false);
    chain.root().begin(0);
    ASSERT_EQ(chain.read(count), samples);
    const int before = chain.store().reads();
    for (int i = 0; i < 100; ++i) {
        const std::size_t position = random.below(count - 10);
        chain.root().seek(static_cast<std::int64_t>(position));
        ASSERT_EQ(chain.read(10), cut(samples, position, 10));
    }
    // Reading all 25,000 headers would need ten reads of the header stream alone.
    EXPECT_LT(chain.store().reads() - before, 100 * 6);
}

// Seeking backwards reads at most a part of the headers, and none for a few subblocks, as at the start of each
// range of points.
TEST(SubblockCheckpoints, AreNearAnyPosition)
{
    constexpr std::uint64_t count = 1000000;
    constexpr std::size_t latest = 30;
    SubblockCheckpoints places;
    places.reset({0, 100, 7, 0}, latest);
    for (std::uint64_t i = 1; i <= count; ++i)
        places.offer({i, static_cast<std::int64_t>(100 + 6 * i), 7, 0});
    for (std::uint64_t i = 0; i < latest; ++i)
        ASSERT_EQ(places.before(count - i).subblock, count - i);
    for (std::uint64_t i = 0; i < count; i += 997) {
        const std::uint64_t found = places.before(i).subblock;
        ASSERT_LE(found, i);
        ASSERT_GE(found + count / 100, i);
    }
}

TEST(SubbandSource, NeedsNoMemoryForZeros)
{
    constexpr std::size_t subblockSize = 1024;
    const auto failureWith = [&](std::int16_t sample, std::uint64_t budgetBytes) {
        Chain<std::int16_t> chain(std::vector<std::int16_t>(2 * subblockSize, sample), 90, 1, subblockSize,
                                  64, true);
        MemoryBudget budget(budgetBytes);
        chain.reader().setBudget(&budget);
        return Testing::failureOf([&] {
            chain.root().begin(0);
            EXPECT_EQ(chain.read(subblockSize).size(), subblockSize);
            EXPECT_EQ(chain.read(subblockSize).size(), subblockSize);
        });
    };
    EXPECT_EQ(failureWith(0, 100), "no error"); // the stream's buffer
    EXPECT_EQ(failureWith(7, subblockSize * 2), "40203 bad read -- channel info");
    EXPECT_EQ(failureWith(7, subblockSize * 2 + 500), "no error"); // both use one buffer
}

TEST(SubbandSource, RefusesAHugeSubblock)
{
    EXPECT_THROW(
        {
            const auto reader = SubblockReader::create({SINT16, 1, std::size_t{1} << 30});
            SubbandSource::createSubbandReader(*reader, {}, std::int64_t{1} << 40);
        },
        Error);
}

} // namespace
} // namespace Quillmoran
