// The lifting steps on one block, and a whole chain of stages whose bands are zero, so that it only lifts and
// interleaves.
#include "decode/bands/SubbandSource.h"
#include "decode/coders/SubblockReader.h"
#include "decode/lifting/InverseWavelet.h"
#include "encode/lifting/ForwardWavelet.h"
#include "support/ByteStore.h"
#include "support/ForwardWavelet.h"
#include "support/SubblockEncoder.h"

#include <benchmark/benchmark.h>
#include <stdexcept>

namespace Quillmoran {
namespace {

template <class T>
void lift(benchmark::State& state, DataType type, TransformType transform)
{
    constexpr std::size_t count = 8192, pad = 4;
    std::vector<T> low(count + 2 * pad), high(count + 2 * pad);
    for (std::size_t i = 0; i < low.size(); ++i) {
        low[i] = static_cast<T>(i % 251);
        high[i] = static_cast<T>(i % 13);
    }
    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getInverseWavelet(type, transform, predict, update);
    std::vector<T> expected = low;
    update(low.data() + pad, count, high.data() + pad, count);
    Testing::update(expected, high, Testing::Lifting::of(transform), -1);
    if (low[pad + 100] != expected[pad + 100])
        throw std::logic_error("lift");
    for (auto _ : state) {
        update(low.data() + pad, count, high.data() + pad, count);
        predict(low.data() + pad, count, high.data() + pad, count);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(2 * count));
}
constexpr auto lift16 = lift<std::int16_t>;
constexpr auto lift32 = lift<std::int32_t>;
constexpr auto lift64 = lift<std::int64_t>;
constexpr auto liftDoubles = lift<double>;
BENCHMARK_CAPTURE(lift16, order1, SINT16, TransformType{1});
BENCHMARK_CAPTURE(lift32, order1, SINT32, TransformType{1});
BENCHMARK_CAPTURE(lift64, order1, SINT64, TransformType{1});
BENCHMARK_CAPTURE(lift32, order3, SINT32, TransformType{3});
BENCHMARK_CAPTURE(liftDoubles, order3, FLOAT64, TransformType{63});

// The forward transform: predict, then update.
template <class T>
void liftForward(benchmark::State& state, DataType type, TransformType transform)
{
    constexpr std::size_t count = 8192, pad = 4;
    std::vector<T> low(count + 2 * pad), high(count + 2 * pad);
    for (std::size_t i = 0; i < low.size(); ++i) {
        low[i] = static_cast<T>(i * 7 % 251);
        high[i] = static_cast<T>(i * 5 % 241);
    }
    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getForwardWavelet(type, transform, predict, update);
    std::vector<T> expectedLow = low, expectedHigh = high;
    predict(low.data() + pad, count, high.data() + pad, count);
    update(low.data() + pad, count, high.data() + pad, count);
    const auto lifting = Testing::Lifting::of(transform);
    Testing::predict(expectedLow, expectedHigh, lifting, -1);
    Testing::update(expectedLow, high, lifting, 1);
    for (std::size_t i = pad; i < pad + count; ++i)
        if (high[i] != expectedHigh[i] || low[i] != expectedLow[i])
            throw std::logic_error("liftForward");
    for (auto _ : state) {
        predict(low.data() + pad, count, high.data() + pad, count);
        update(low.data() + pad, count, high.data() + pad, count);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(2 * count));
}
constexpr auto liftForward16 = liftForward<std::int16_t>;
constexpr auto liftForward32 = liftForward<std::int32_t>;
constexpr auto liftForwardDoubles = liftForward<double>;
BENCHMARK_CAPTURE(liftForward16, order1, SINT16, TransformType{1});
BENCHMARK_CAPTURE(liftForward32, order1, SINT32, TransformType{1});
BENCHMARK_CAPTURE(liftForward32, order1WithoutUpdate, SINT32, TransformType{11});
BENCHMARK_CAPTURE(liftForward32, order3, SINT32, TransformType{3});
BENCHMARK_CAPTURE(liftForwardDoubles, order3, FLOAT64, TransformType{63});

void pullZeroBands(benchmark::State& state)
{
    constexpr std::int64_t total = 1 << 20;
    constexpr std::size_t block = 16384;
    const auto reader = SubblockReader::create({SINT32, 1, 4096});
    reader->init();
    Testing::BandOptions options;
    options.subblockSize = 4096;
    const auto headers = Testing::encodeBand(std::vector<std::int32_t>(total), options, true).headers;
    const Scoped<Testing::ByteStore> store(Testing::ByteStore::create(headers));
    const IO::Location range(store.get(), 0, store->size());
    const BandRanges ranges{range, range, true};
    const int levels = static_cast<int>(state.range(0));
    auto root = SubbandSource::createSubbandReader(*reader, ranges, total >> (levels - 1));
    for (int level = levels - 2; level >= 0; --level) {
        auto high = SubbandSource::createSubbandReader(*reader, ranges, total >> (level + 1));
        root = SubbandSource::createPipeStage(block / 2, std::move(root), std::move(high));
    }
    std::vector<std::int32_t> samples(block);
    for (auto _ : state) {
        root->begin(0);
        std::int64_t got = 0;
        while (const std::size_t count = root->get(samples.data(), block))
            got += static_cast<std::int64_t>(count);
        if (got != total)
            throw std::logic_error("pullZeroBands");
        root->end();
    }
    state.SetItemsProcessed(state.iterations() * total);
}
BENCHMARK(pullZeroBands)->Arg(1)->Arg(2)->Arg(8);

} // namespace
} // namespace Quillmoran
