// Reading a file through streams of different buffers: many small fields, and payloads of a few kilobytes.
#include "platform/Stream.h"
#include <vxunpack/FileIO.h>

#include <benchmark/benchmark.h>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace Quillmoran {
namespace {

constexpr std::size_t fileSize = 8 << 20;

Scoped<FileIO::Imp> makeFile()
{
    Scoped<FileIO::Imp> file(FileIO::create());
    file->init(nullptr);
    StreamWriter writer;
    writer.init(file.get(), true, 65536);
    for (std::uint32_t i = 0; i < fileSize / 4; ++i)
        writer.put_be(i);
    writer.close(true);
    return file;
}

void readFields(benchmark::State& state)
{
    const auto file = makeFile();
    for (auto _ : state) {
        StreamReader reader;
        reader.init(file.get(), true, static_cast<std::size_t>(state.range(0)));
        std::uint32_t value = 0, last = 0;
        while (reader.get_be(value))
            last = value;
        if (last != fileSize / 4 - 1)
            throw std::logic_error("readFields");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fileSize));
}
BENCHMARK(readFields)->Arg(4096)->Arg(16384);

void readPayloads(benchmark::State& state)
{
    const auto file = makeFile();
    std::vector<std::uint8_t> payload(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        StreamReader reader;
        reader.init(file.get(), true, 16384);
        std::size_t total = 0;
        while (const std::size_t got = reader.read(payload.data(), payload.size()))
            total += got;
        if (total != fileSize)
            throw std::logic_error("readPayloads");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fileSize));
}
BENCHMARK(readPayloads)->Arg(1500)->Arg(6000)->Arg(100000);

} // namespace
} // namespace Quillmoran
