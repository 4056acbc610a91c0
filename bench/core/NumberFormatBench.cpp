// Fields per second of the number formatter, and points per second of the text writer with the sixteen columns
// of a LAS file. The values are typical of a survey: coordinates in centimetres, times in microseconds, small
// integers.
#include "text/NumberFormat.h"
#include <vxunpack/TXTPointWriter.h>

#include "model/ChannelNames.h"
#include <vxunpack/FileIO.h>
#include <vxunpack/PointSource.h>
#include <vxunpack/TXTPointReader.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

constexpr std::size_t numValues = 1 << 14;
constexpr std::uint64_t seed = 20240611;

std::vector<double> makeCoordinates()
{
    std::mt19937_64 random(seed);
    std::vector<double> values(numValues);
    for (double& value : values)
        value = 400000 + static_cast<double>(random() % 20000000) / 100;
    return values;
}

std::vector<double> makeTimes()
{
    std::mt19937_64 random(seed);
    std::vector<double> values(numValues);
    for (double& value : values)
        value = static_cast<double>(random() % 604800000000) / 1e6;
    return values;
}

std::vector<std::uint64_t> makeIntegers()
{
    std::mt19937_64 random(seed);
    std::vector<std::uint64_t> values(numValues);
    for (std::uint64_t& value : values)
        value = random() % (random() % 2 == 0 ? 4 : 4096);
    return values;
}

// Formats all values repeatedly. The first round is compared with printf's text.
template <class T, class Format, class Expect>
void run(benchmark::State& state, const std::vector<T>& values, Format format, Expect expect)
{
    std::int64_t bytes = 0;
    for (const T value : values) {
        char out[maxFieldLength];
        char expected[maxFieldLength + 1];
        const auto length = static_cast<std::size_t>(format(out, value) - out);
        expect(expected, sizeof expected, value);
        if (std::string(out, length) != expected) {
            state.SkipWithError("differs from printf");
            return;
        }
        bytes += static_cast<std::int64_t>(length);
    }
    for (auto _ : state)
        for (const T value : values) {
            char out[maxFieldLength];
            benchmark::DoNotOptimize(format(out, value));
            benchmark::ClobberMemory();
        }
    const auto rounds = static_cast<std::int64_t>(state.iterations());
    state.SetItemsProcessed(rounds * static_cast<std::int64_t>(values.size()));
    state.SetBytesProcessed(rounds * bytes);
}

void formatFixed(benchmark::State& state)
{
    const auto decimals = static_cast<int>(state.range(0));
    run(
        state, makeCoordinates(),
        [decimals](char* out, double value) { return Quillmoran::formatFixed(out, value, decimals); },
        [decimals](char* out, std::size_t size, double value) {
            std::snprintf(out, size, "%.*f", decimals, value);
        });
}
BENCHMARK(formatFixed)->Arg(3)->Arg(6)->Arg(9)->Arg(15);

void formatGeneral(benchmark::State& state)
{
    const auto precision = static_cast<int>(state.range(0));
    run(
        state, makeTimes(),
        [precision](char* out, double value) { return Quillmoran::formatGeneral(out, value, precision); },
        [precision](char* out, std::size_t size, double value) {
            std::snprintf(out, size, "%.*g", precision, value);
        });
}
BENCHMARK(formatGeneral)->Arg(9)->Arg(18);

void formatUnsigned(benchmark::State& state)
{
    run(state, makeIntegers(), Quillmoran::formatUnsigned,
        [](char* out, std::size_t size, std::uint64_t value) {
            std::snprintf(out, size, "%" PRIu64, value);
        });
}
BENCHMARK(formatUnsigned);

void printfFixed(benchmark::State& state)
{
    const auto print = [](char* out, std::size_t size, double value) {
        return out + std::snprintf(out, size, "%.3f", value);
    };
    run(
        state, makeCoordinates(), [&](char* out, double value) { return print(out, maxFieldLength, value); },
        print);
}
BENCHMARK(printfFixed);

// Delivers one block of points several times. The samples remain in the writer's block after the first time,
// so that only writing takes time.
class RepeatedBlock final : public PointReader
{
public:
    static constexpr int repetitions = 16;

    RepeatedBlock()
    {
        PointInfo layout;
        TXTPointReader::parseFormat("xyzirndecaputRGB", layout);
        for (const char* name : {ChannelNames::x, ChannelNames::y, ChannelNames::z})
            layout.getChannel(name)->setQuantization(0.01);
        layout.getChannel(ChannelNames::gpsTime)->setQuantization(1e-6);
        setPointInfo(layout);
        setBounds(Bounds::Huge());
        setNumPoints(static_cast<std::int64_t>(numValues) * repetitions);
    }

    const char* getFileFormatString() const override { return "Repeated"; }
    void loadMetadata(Metadata&, bool) const override {}
    double getTotalWork(const Bounds&, double) const override { return 0; }
    PointIterator* createIterator(const Bounds&, double, const PointInfo&, ProgressDelegate*) const override
    {
        return new Iterator;
    }

private:
    class Iterator final : public PointIterator
    {
    public:
        std::size_t getNextPoints(PointData& buffer) override
        {
            if (m_round == 0)
                fill(buffer);
            return m_round++ < repetitions ? numValues : 0;
        }

    private:
        static void fill(PointData& buffer)
        {
            const std::vector<double> coordinates = makeCoordinates();
            const std::vector<double> times = makeTimes();
            std::mt19937_64 random(seed);
            for (std::size_t i = 0; i < buffer.getNumChannels(); ++i) {
                ChannelData& channel = buffer.getChannel(i);
                visitDataType(channel.getDataType(), [&](auto zero) {
                    using T = decltype(zero);
                    T* const samples = static_cast<T*>(channel.getData());
                    const bool isTime = channel.isNamed(ChannelNames::gpsTime);
                    const std::uint64_t limit = std::uint64_t{1} << std::min(channel.getBits(), 12);
                    for (std::size_t j = 0; j < numValues; ++j)
                        samples[j] = DataTypeUtils::isFloat(channel.getDataType())
                                         ? static_cast<T>((isTime ? times : coordinates)[j])
                                         : static_cast<T>(random() % limit);
                });
            }
        }

        int m_round = 0;
    };
};

void writeText(benchmark::State& state, const char* path)
{
    const Scoped<RepeatedBlock> source(new RepeatedBlock);
    std::int64_t points = 0;
    for (auto _ : state) {
        const Scoped<TXTPointWriter> writer(TXTPointWriter::create());
        writer->init(source.get(), path, source->getPointInfo());
        writer->setChunckSize(numValues);
        points += writer->write(Bounds::Huge(), 1.0, source->getPointInfo(), nullptr);
    }
    state.SetItemsProcessed(points);
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(path, "r");
    state.SetBytesProcessed(file->size() * static_cast<std::int64_t>(state.iterations()));
}

void writeTextToNull(benchmark::State& state)
{
    writeText(state, "/dev/null");
}
BENCHMARK(writeTextToNull)->Unit(benchmark::kMillisecond);

void writeTextToFile(benchmark::State& state)
{
    // Every round overwrites the file of the previous one.
    const Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    writeText(state, file->path());
}
BENCHMARK(writeTextToFile)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace Quillmoran
