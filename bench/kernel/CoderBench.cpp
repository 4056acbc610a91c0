// The entropy coders inside their subblock readers: samples per second, and the coded bits that went in.
#include "decode/SubblockReader.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Random.h"
#include "support/SubblockEncoder.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <stdexcept>

namespace Quillmoran {
namespace {

constexpr std::size_t subblockSize = 4096;
constexpr std::size_t total = subblockSize * 64;

// Laplacian-like coefficients of about `spread`, as high bands have.
template <class T>
std::vector<T> makeCoefficients(double spread)
{
    Testing::Random random(1);
    std::vector<T> samples(total);
    for (T& sample : samples) {
        const double magnitude = -std::log(1 - random.real()) * spread;
        sample = static_cast<T>(random.chance(0.5) ? magnitude : -magnitude);
    }
    return samples;
}

template <class T>
void decodeBand(benchmark::State& state, DataType type, TransformType transform)
{
    const auto samples = makeCoefficients<T>(static_cast<double>(state.range(0)));
    Testing::BandOptions options;
    options.transform = transform;
    options.subblockSize = subblockSize;
    const Testing::EncodedBand band = Testing::encodeBand(samples, options, false);
    const Scoped<Testing::ByteStore> headerStore(Testing::ByteStore::create(band.headers));
    const Scoped<Testing::ByteStore> dataStore(Testing::ByteStore::create(band.data));
    const auto reader = SubblockReader::create(type, transform, "T", subblockSize, false);
    reader->init();
    StreamReader headers, data;
    headers.init(headerStore.get(), true, 16384);
    data.init(dataStore.get(), true, 16384);
    std::vector<T> decoded(total);
    const auto decodeAll = [&] {
        headers.seek(0, Stream::SEEK_FROM_START);
        data.seek(0, Stream::SEEK_FROM_START);
        for (std::size_t i = 0; i < total; i += subblockSize)
            reader->loadSubblock(i / subblockSize, headers, data, decoded.data() + i, subblockSize, 0);
    };
    decodeAll();
    if (decoded != samples)
        throw std::logic_error("decodeBand");
    for (auto _ : state)
        decodeAll();
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(total));
    const double bits = 8.0 * static_cast<double>(band.data.size());
    state.counters["coded_bits"] = bits / static_cast<double>(total);
    state.counters["coded_Mbit/s"] =
        benchmark::Counter(bits / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}
constexpr auto decode16 = decodeBand<std::int16_t>;
constexpr auto decode32 = decodeBand<std::int32_t>;
constexpr auto decodeDoubles = decodeBand<double>;
BENCHMARK_CAPTURE(decode16, MQ, SINT16, TransformType{1})->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(decode32, MQ, SINT32, TransformType{1})->Arg(10)->Arg(5000);
BENCHMARK_CAPTURE(decode16, Arithmetic, SINT16, TransformType{91})->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(decodeDoubles, Deflate, FLOAT64, TransformType{70})->Arg(100);

} // namespace
} // namespace Quillmoran
