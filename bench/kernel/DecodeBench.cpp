// Whole queries of one file, in memory, on one thread and on two.
#include "support/ByteStore.h"
#include "support/SampleCloud.h"
#include <vxunpack/PointWriter.h>
#include <vxunpack/VX7PointReader.h>

#include <benchmark/benchmark.h>
#include <stdexcept>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>

namespace Quillmoran {
namespace {

constexpr std::size_t numPoints = 200000;

const VX7PointReader& openSurvey()
{
    static const Scoped<VX7PointReader> survey = [] {
        const auto cloud = Testing::SampleCloud::make(numPoints, 1);
        Testing::FilePlan plan = cloud.toFile();
        plan.numLevels = 8;
        for (Testing::ChannelPlan& channel : plan.channels)
            channel.subblockSize = 4096;
        cloud.addIndex(plan, 2, 1000);
        const Scoped<Testing::ByteStore> store(Testing::ByteStore::create(buildFile(plan)));
        Scoped<VX7PointReader> reader(VX7PointReader::create());
        reader->init(store.get());
        return reader;
    }();
    return *survey;
}

std::size_t countPoints(const PointInfo& layout, const Bounds& box, double fraction)
{
    const Scoped<PointIterator> iterator(openSurvey().createIterator(box, fraction, layout, nullptr));
    PointData block;
    block.init(layout, 65536);
    std::size_t total = 0;
    while (const std::size_t count = iterator->getNextPoints(block))
        total += count;
    return total;
}

void runQuery(benchmark::State& state, const PointInfo& layout, const Bounds& box, double fraction,
              int threads)
{
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(threads));
    tbb::task_arena arena(threads);
    const std::size_t expected = countPoints(layout, box, fraction);
    if (expected == 0)
        throw std::logic_error("runQuery");
    arena.execute([&] {
        for (auto _ : state)
            if (countPoints(layout, box, fraction) != expected)
                throw std::logic_error("runQuery");
    });
    state.counters["points"] = static_cast<double>(expected);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(expected));
}

void everything(benchmark::State& state)
{
    runQuery(state, openSurvey().getPointInfo(), Bounds::Huge(), 1.0, static_cast<int>(state.range(0)));
}
BENCHMARK(everything)->Arg(1)->Arg(2)->UseRealTime();

void coordinates(benchmark::State& state)
{
    const char* const names[] = {"X", "Y", "Z"};
    PointInfo layout;
    layout.init(openSurvey().getPointInfo(), names, 3);
    runQuery(state, layout, Bounds::Huge(), 1.0, 1);
}
BENCHMARK(coordinates);

void window(benchmark::State& state)
{
    Bounds box = openSurvey().getBounds();
    const double height = box.y.max - box.y.min;
    box.y = {box.y.min + 0.495 * height, box.y.min + 0.505 * height};
    runQuery(state, openSurvey().getPointInfo(), box, 1.0, 1);
}
BENCHMARK(window);

void preview(benchmark::State& state)
{
    runQuery(state, openSurvey().getPointInfo(), Bounds::Huge(), 1.0 / 64, 1);
}
BENCHMARK(preview);

} // namespace
} // namespace Quillmoran
