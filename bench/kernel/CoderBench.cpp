// The entropy coders inside their subblock readers and writers: samples per second, and coded bits per second.
#include "decode/coders/SubblockReader.h"
#include "encode/coders/SubblockWriter.h"
#include "platform/Stream.h"
#include "support/ByteStore.h"
#include "support/Random.h"
#include "support/SubblockEncoder.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <memory>
#include <optional>
#include <stdexcept>

namespace Quillmoran {
namespace {

constexpr std::size_t subblockSize = 4096;
constexpr std::size_t total = subblockSize * 64;

// Coefficients with an approximate Laplace distribution of width `spread`, as in high bands.
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

// Decodes a band of full subblocks any number of times.
template <class T>
class BandDecoder
{
public:
    BandDecoder(DataType type, TransformType transform, const Testing::Bytes& headers,
                const Testing::Bytes& data)
        : m_headerStore(Testing::ByteStore::create(headers)),
          m_dataStore(Testing::ByteStore::create(data)),
          m_reader(SubblockReader::create({type, transform, subblockSize})),
          m_samples(total)
    {
        m_reader->init();
        m_headers.init(m_headerStore.get(), true, 16384);
        m_data.init(m_dataStore.get(), true, 16384);
    }

    const std::vector<T>& decode()
    {
        m_headers.seek(0, Stream::SEEK_FROM_START);
        m_data.seek(0, Stream::SEEK_FROM_START);
        for (std::size_t i = 0; i < total; i += subblockSize)
            m_reader->loadSubblock(m_headers, m_data, m_samples.data() + i, subblockSize, 0);
        return m_samples;
    }

private:
    Scoped<Testing::ByteStore> m_headerStore;
    Scoped<Testing::ByteStore> m_dataStore;
    StreamReader m_headers;
    StreamReader m_data;
    std::unique_ptr<SubblockReader> m_reader;
    std::vector<T> m_samples;
};

void setCounters(benchmark::State& state, const Testing::Bytes& data)
{
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(total));
    const double bits = 8.0 * static_cast<double>(data.size());
    state.counters["coded_bits"] = bits / static_cast<double>(total);
    state.counters["coded_Mbit/s"] =
        benchmark::Counter(bits / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

template <class T>
void decodeBand(benchmark::State& state, DataType type, TransformType transform)
{
    const auto samples = makeCoefficients<T>(static_cast<double>(state.range(0)));
    Testing::BandOptions options;
    options.transform = transform;
    options.subblockSize = subblockSize;
    const Testing::EncodedBand band = Testing::encodeBand(samples, options, false);
    BandDecoder<T> decoder(type, transform, band.headers, band.data);
    if (decoder.decode() != samples)
        throw std::logic_error("decodeBand");
    for (auto _ : state)
        decoder.decode();
    setCounters(state, band.data);
}
constexpr auto decode16 = decodeBand<std::int16_t>;
constexpr auto decode32 = decodeBand<std::int32_t>;
constexpr auto decodeDoubles = decodeBand<double>;
BENCHMARK_CAPTURE(decode16, MQ, SINT16, TransformType{1})->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(decode32, MQ, SINT32, TransformType{1})->Arg(10)->Arg(5000);
BENCHMARK_CAPTURE(decode16, Arithmetic, SINT16, TransformType{91})->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(decodeDoubles, Deflate, FLOAT64, TransformType{70})->Arg(100);

template <class T>
void encodeBand(benchmark::State& state, DataType type, TransformType transform, std::optional<int> rawPlanes)
{
    const auto samples = makeCoefficients<T>(static_cast<double>(state.range(0)));
    const auto writer = SubblockWriter::create({type, transform, subblockSize, false, rawPlanes});
    Testing::Bytes headers, data;
    const auto encodeAll = [&] {
        headers.clear();
        data.clear();
        for (std::size_t i = 0; i < total; i += subblockSize)
            writer->encode(samples.data() + i, subblockSize, headers, data);
    };
    encodeAll();
    if (BandDecoder<T>(type, transform, headers, data).decode() != samples)
        throw std::logic_error("encodeBand");
    for (auto _ : state)
        encodeAll();
    setCounters(state, data);
}
constexpr auto encode16 = encodeBand<std::int16_t>;
constexpr auto encode32 = encodeBand<std::int32_t>;
constexpr auto encodeDoubles = encodeBand<double>;
constexpr std::optional<int> chosen;
// With the raw planes that a writer chooses, and without: every plane is coded.
BENCHMARK_CAPTURE(encode16, MQ, SINT16, TransformType{1}, chosen)->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(encode16, MQAllPlanes, SINT16, TransformType{1}, 0)->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(encode32, MQ, SINT32, TransformType{1}, chosen)->Arg(10)->Arg(5000);
BENCHMARK_CAPTURE(encode16, Arithmetic, SINT16, TransformType{91}, chosen)->Arg(1)->Arg(10)->Arg(200);
BENCHMARK_CAPTURE(encodeDoubles, Deflate, FLOAT64, TransformType{70}, chosen)->Arg(100);

} // namespace
} // namespace Quillmoran
