#include "info/Histogram.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Adds blocks of up to `longest` samples.
template <class Position, class T>
HistogramBins count(Histogram<Position> histogram, const std::vector<T>& samples, std::size_t longest,
                    Random& random)
{
    for (std::size_t begin = 0; begin < samples.size();) {
        const std::size_t size = std::min<std::size_t>(1 + random.below(longest), samples.size() - begin);
        const auto block = samples.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto [low, high] = std::minmax_element(block, block + static_cast<std::ptrdiff_t>(size));
        histogram.cover(*low, *high);
        histogram.add(&*block, size);
        begin += size;
    }
    return histogram.getBins();
}

template <class Position, class T>
void expectSameBins(const Histogram<Position>& empty, std::vector<T> samples, bool isExact = true)
{
    Random random(7);
    const HistogramBins whole = count(empty, samples, samples.size() * 1000, random);
    ASSERT_TRUE(whole.counts.size() <= 64 && whole.edges.size() == whole.counts.size() + 1);
    EXPECT_TRUE(whole.counts.front() != 0 && whole.counts.back() != 0);
    if (isExact) { // edges and samples are, as numbers
        std::vector<std::uint64_t> expected(whole.counts.size());
        for (const T sample : samples)
            ++expected.at(static_cast<std::size_t>(
                std::upper_bound(whole.edges.begin(), whole.edges.end() - 1, static_cast<double>(sample)) -
                whole.edges.begin() - 1));
        EXPECT_EQ(whole.counts, expected);
    }
    for (const std::size_t longest : {1, 3, 200}) {
        for (std::size_t i = samples.size(); i-- > 1;)
            std::swap(samples[i], samples[random.below(i + 1)]);
        const HistogramBins parts = count(empty, samples, longest, random);
        EXPECT_EQ(parts.edges, whole.edges);
        EXPECT_EQ(parts.counts, whole.counts);
    }
}

// The bins depend on the samples only, not on blocks or order, for all numbers that a file can have.
TEST(Histogram, CountsDoNotDependOnBlocks)
{
    Random random(1);
    for (int round = 0; round < 30; ++round) {
        Numbers reals(500);
        std::vector<std::int64_t> integers;
        std::vector<std::uint64_t> naturals;
        // Magnitudes from narrow to the widest possible, around 0 and far from it.
        const double spread = std::ldexp(1.0, static_cast<int>(random.below(2000)) - 1000),
                     middle = round % 3 * 4.1 * spread;
        const unsigned shift = static_cast<unsigned>(random.below(64));
        for (double& real : reals) {
            real = middle + spread * (static_cast<double>(random.below(1 << 20)) / (1 << 19) - 1);
            integers.push_back(static_cast<std::int64_t>(random.next()) >> shift);
            naturals.push_back(random.next() >> shift);
        }
        integers[0] = round % 2 != 0 ? std::numeric_limits<std::int64_t>::min() : 0;
        expectSameBins(Histogram<double>(), reals);
        expectSameBins(Histogram<std::int64_t>(), integers, shift > 12 && round % 2 == 0);
        expectSameBins(Histogram<std::uint64_t>(), naturals, shift > 11);
    }
    for (const double limit : {1.7976931348623157e308, 5e-324, 2.3e-308, 1.0, 0.0})
        expectSameBins(Histogram<double>(),
                       Numbers{0.0, -0.0, limit, -limit, limit / 2, limit / 3, -1e-20 * limit}, false);
    expectSameBins(Histogram<double>(1e-300, 1e300), Numbers{-1e308, 3, 1e308}, false);
}

// Bins have equal numbers of steps, with edges between samples.
TEST(Histogram, BinsAreWholeNumbersOfSteps)
{
    Numbers samples;
    for (int i = -150; i < 850; ++i)
        samples.push_back(i * 0.01 + 500000.003);
    Random random(1);
    const HistogramBins bins = count(Histogram<double>(0.01, 500000.003), samples, 10, random);
    ASSERT_EQ(bins.counts.size(), 64u);
    EXPECT_EQ(std::count(bins.counts.begin() + 1, bins.counts.end() - 1, 16u), 62);
    EXPECT_NEAR(bins.edges[10], 500000.003 - 1.6 + 1.6 - 0.005, 1e-6);
}

}} // namespace Quillmoran::Testing
