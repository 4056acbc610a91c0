#include "decode/bands/SubbandSource.h"

#include "decode/MemoryBudget.h"
#include "decode/bands/SubblockCheckpoints.h"
#include "decode/coders/SubblockReader.h"
#include "support/ForwardWavelet.h"
#include "support/Kernels.h"
#include "support/SubblockEncoder.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// The bands of a channel in memory, and the chain over them.
template <class T>
class Chain
{
public:
    Chain(std::vector<T> samples, const BandOptions& options, std::size_t levels, std::size_t blockSize,
          bool interleaved)
        : m_bands(decompose(std::move(samples), Lifting::of(options.transform), levels)),
          m_transform(options.transform)
    {
        Bytes all = {0xEE}; // bands do not start at the beginning of a file
        std::vector<EncodedBand> encoded;
        for (const auto& band : m_bands) {
            encoded.push_back(encodeBand(band, options, interleaved));
            for (const Bytes* range : {&encoded.back().headers, &encoded.back().data})
                all.insert(all.end(), range->begin(), range->end());
        }
        m_store = Scoped<ByteStore>(ByteStore::create(std::move(all)));
        m_reader = SubblockReader::create(
            {kernelOf<T>, options.transform, options.subblockSize, options.perPlaneLengths});
        m_reader->init();
        std::int64_t at = 1;
        const auto locate = [&](const Bytes& range) {
            const auto length = static_cast<std::int64_t>(range.size());
            at += length;
            return IO::Location(m_store.get(), at - length, length);
        };
        for (std::size_t i = 0; i < m_bands.size(); ++i) {
            const IO::Location headers = locate(encoded[i].headers);
            const IO::Location data = locate(encoded[i].data);
            auto leaf = SubbandSource::createSubbandReader(*m_reader, {headers, data, interleaved},
                                                           static_cast<std::int64_t>(m_bands[i].size()));
            m_root = i == 0 ? std::move(leaf)
                            : SubbandSource::createPipeStage(blockSize, std::move(m_root), std::move(leaf));
        }
    }

    SubbandSource& root() { return *m_root; }
    SubblockReader& reader() { return *m_reader; }
    const ByteStore& store() const { return *m_store; }
    // The result of the plain inverse: for integers the original samples.
    std::vector<T> expected() const { return compose(m_bands, Lifting::of(m_transform), m_bands.size()); }

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

// A random walk with jumps, whose coefficients fit into 16 bits and all coders. `wide`: any bits instead.
template <class T>
std::vector<T> makeSamples(Random& random, std::size_t count, bool wide)
{
    std::vector<T> samples(count);
    double value = 0;
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value += (random.real() - 0.5) * 40;
        if (random.chance(0.02))
            value = (random.real() - 0.5) * 2000;
        bits = random.next() >> (random.chance(0.3) ? random.below(64) : 0);
        samples[i] = static_cast<T>(value);
        if (wide)
            std::memcpy(&samples[i], &bits, sizeof(T));
        if (i / 40 % 4 == 3)
            samples[i] = T(0);
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
        BandOptions options;
        options.transform = transform;
        options.subblockSize = 6 + random.below(35); // smaller ones are too small for their payloads
        options.perPlaneLengths = random.chance(0.3);
        const std::size_t rawPlanes[] = {0, 1, 3, 64};
        options.rawPlanes = static_cast<int>(rawPlanes[random.below(4)]);
        const std::size_t blockSize = 1 + random.below(length < 40 ? 8 : 70);
        // The arithmetic coder holds 15 bits; sums of any floating-point numbers can be NaN.
        const bool wide = transform < 60 && length % 3 == 0;
        const auto samples = makeSamples<T>(random, length, wide);
        Chain<T> chain(samples, options, levels, blockSize, length % 2 == 0);
        const std::vector<T> expected = chain.expected();
        if constexpr (std::is_integral_v<T>) {
            ASSERT_EQ(expected, samples); // the plain inverse is exact
        }
        const auto label = [&](std::size_t position) {
            return "transform=" + std::to_string(transform) + " length=" + std::to_string(length) +
                   " levels=" + std::to_string(levels) + " position=" + std::to_string(position);
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
    Chain<std::int32_t> chain(samples, {1, 8}, 1, 64, false);
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
        Chain<std::int16_t> chain(std::vector<std::int16_t>(2 * subblockSize, sample), {90, subblockSize}, 1,
                                  64, true);
        MemoryBudget budget(budgetBytes);
        chain.reader().setBudget(&budget);
        return failureOf([&] {
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
    const auto failureWith = [](std::size_t subblockSize, std::int64_t numSamples) {
        const auto reader = SubblockReader::create({SINT16, 1, subblockSize});
        return failureOf([&] { SubbandSource::createSubbandReader(*reader, {}, numSamples); });
    };
    constexpr std::int64_t most = 1 << 24;
    EXPECT_EQ(failureWith(most, std::int64_t{1} << 40), "no error");
    EXPECT_EQ(failureWith(most + 1, most), "no error"); // the band is shorter than a subblock
    EXPECT_EQ(failureWith(most + 1, most + 1), "40203 bad read -- channel info");
}

}} // namespace Quillmoran::Testing
