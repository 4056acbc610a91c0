// Conversions between sample types, over blocks that fit the second-level cache.
#include <vxunpack/PointData.h>

#include <benchmark/benchmark.h>
#include <cstdint>
#include <stdexcept>

namespace Quillmoran {
namespace {

constexpr std::size_t count = 16384;

void dequantize(benchmark::State& state)
{
    ChannelInfo integers, reals;
    integers.init("I", SINT32, 0, 0);
    reals.init("R", FLOAT64, 0, 0);
    ChannelData from, to;
    from.init(integers, count);
    to.init(reals, count);
    auto* steps = static_cast<std::int32_t*>(from.getData());
    for (std::size_t i = 0; i < count; ++i)
        steps[i] = static_cast<std::int32_t>(i * 7919);
    ChannelData::convert(to, 0, from, 0, 500000.0, 0.01, count);
    if (static_cast<const double*>(to.getData())[9] != 9 * 7919 * 0.01 + 500000.0)
        throw std::logic_error("dequantize");
    for (auto _ : state) {
        ChannelData::convert(to, 0, from, 0, 500000.0, 0.01, count);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}
BENCHMARK(dequantize);

void convert(benchmark::State& state, DataType fromType, DataType toType)
{
    ChannelInfo fromInfo, toInfo;
    fromInfo.init("F", fromType, 0, 0);
    toInfo.init("T", toType, 0, 0);
    ChannelData from, to;
    from.init(fromInfo, count);
    to.init(toInfo, count);
    auto* samples = static_cast<std::uint8_t*>(from.getData());
    for (std::size_t i = 0; i < count * DataTypeUtils::getSize(fromType); ++i)
        samples[i] = static_cast<std::uint8_t>(i);
    for (auto _ : state) {
        ChannelData::convert(to, 0, from, 0, count);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}
BENCHMARK_CAPTURE(convert, SINT16_to_UINT8, SINT16, UINT8);
BENCHMARK_CAPTURE(convert, SINT32_to_UINT16, SINT32, UINT16);

} // namespace
} // namespace Quillmoran
