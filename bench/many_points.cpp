// Writes and reads a cloud of more than 2^32 points and checks every count:
//
//   many_points DIRECTORY [MILLIONS]         default: 5000, which takes minutes and 10 MB of the directory
//
// Most samples are constant. X is the number of the point's group of 65,536 points in steps of 0.01, and the last
// thousand points are higher than the others.
#include <vxunpack/Cloud.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>

namespace Quillmoran {
namespace {

constexpr std::uint64_t groupPoints = 65536;
constexpr std::uint64_t numHighPoints = 1000;
constexpr double step = 0.01;
constexpr std::uint64_t maxLegacyCount = 0xffffffff; // of LAS 1.0 to 1.3

void require(const char* what, std::uint64_t actual, std::uint64_t expected)
{
    std::printf("%-52s %11ju\n", what, std::uintmax_t{actual});
    std::fflush(stdout);
    if (actual != expected)
        throw std::runtime_error(std::string(what) + ": should be " + std::to_string(expected));
}

double groupX(std::uint64_t point)
{
    const std::uint64_t group = point / groupPoints;
    return static_cast<double>(group) * step;
}

vx::Cloud generate(std::uint64_t numPoints)
{
    const std::vector<vx::Channel> channels = {{"X", vx::FLOAT64, step},
                                               {"Y", vx::FLOAT64, step},
                                               {"Z", vx::FLOAT64, step},
                                               {"ReturnNum", vx::UINT8},
                                               {"ClassFlags", vx::UINT8}};
    const auto fill = [=](std::uint64_t first, const vx::MutableBlock& block) {
        const std::span<double> x = block.x();
        for (std::size_t i = 0; i < x.size();) {
            const std::size_t end =
                std::min<std::uint64_t>(x.size(), i + groupPoints - (first + i) % groupPoints);
            std::fill(&x[i], x.data() + end, groupX(first + i));
            i = end;
        }
        std::ranges::fill(block.y(), 0);
        std::ranges::fill(block.z(), 0);
        for (std::uint64_t i = std::max(first, numPoints - numHighPoints); i < first + x.size(); ++i)
            block.z()[i - first] = 1;
        std::ranges::fill(block.column<std::uint8_t>("ReturnNum"), std::uint8_t{1});
        std::ranges::fill(block.column<std::uint8_t>("ClassFlags"), std::uint8_t{0});
    };
    return vx::Cloud::generate(numPoints, channels, fill, {0, groupX(numPoints), 0, 0, 0, 1});
}

std::uint64_t count(const vx::Cloud& cloud, const vx::Query& query)
{
    std::uint64_t found = 0;
    for (const vx::Block& block : cloud.read(query))
        found += block.size();
    return found;
}

// Keeps the beginning of what is written to it.
class HeadIO final : public IO
{
public:
    void open() override {}
    void close() override {}
    std::size_t pread(std::int64_t, void*, std::size_t) const override { return 0; }
    std::size_t pwrite(std::int64_t offset, const void* buffer, std::size_t count) const override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_size = std::max(m_size, offset + static_cast<std::int64_t>(count));
        const auto at = static_cast<std::size_t>(offset);
        if (at < head.size())
            std::memcpy(head.data() + at, buffer, std::min(count, head.size() - at));
        return count;
    }
    std::int64_t size() const override { return m_size; }
    void truncate(std::int64_t length) override { m_size = length; }
    void unlink() override {}

    template <class T>
    T get(std::size_t offset) const // little-endian, as this machine
    {
        T value;
        std::memcpy(&value, head.data() + offset, sizeof value);
        return value;
    }

    mutable std::array<unsigned char, 375> head{}; // the header of LAS 1.4

private:
    mutable std::mutex m_mutex;
    mutable std::int64_t m_size = 0;
};

void writeLAS(const vx::Cloud& cloud, const PointInfo& layout, HeadIO& io,
              LASPointWriter::FileVersion version)
{
    const Scoped<LASPointWriter> writer(LASPointWriter::create());
    writer->init(&cloud.source(), &io, "LAS", version);
    writer->write(Bounds::Huge(), 1, layout, nullptr);
}

void checkLAS(const vx::Cloud& cloud, std::uint64_t numPoints)
{
    const bool fits = numPoints <= maxLegacyCount;
    const Scoped<HeadIO> io(new HeadIO);
    writeLAS(cloud, cloud.source().getPointInfo(), *io, -1);
    const std::int64_t recordLength = io->get<std::uint16_t>(105);
    require("LAS 1.4: points", io->get<std::uint64_t>(247), numPoints);
    require("LAS 1.4: points of return 1", io->get<std::uint64_t>(255), numPoints);
    require("LAS 1.4: points in the fields of 32 bits", io->get<std::uint32_t>(107), fits ? numPoints : 0);
    require("LAS 1.4: points of return 1 in the fields of 32 bits", io->get<std::uint32_t>(111),
            fits ? numPoints : 0);
    require("LAS 1.4: bytes of records", static_cast<std::uint64_t>(io->size() - io->get<std::uint32_t>(96)),
            numPoints * recordLength);
    if (fits)
        return;
    const char* const names[] = {"X", "Y", "Z"};
    PointInfo coordinates;
    coordinates.init(cloud.source().getPointInfo(), names, 3);
    try {
        writeLAS(cloud, coordinates, *io, 12);
    } catch (const Error& error) {
        std::printf("LAS 1.2: %s\n", error.what());
        return;
    }
    throw std::runtime_error("LAS 1.2 was written");
}

void checkIndex(const std::string& file, const std::string& index, std::uint64_t numPoints)
{
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    writer->add(file.c_str());
    writer->write(index.c_str());
    const vx::Cloud cloud = vx::open(index);
    require("index: points", cloud.numPoints().value(), numPoints);
    require("index: points that are high", count(cloud, {.box = {.zMin = 1}}), numHighPoints);
}

class Clock
{
public:
    ~Clock()
    {
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - m_begin;
        std::printf("%64s %.2f s\n", "", seconds.count());
    }

private:
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

void run(const std::string& directory, std::uint64_t numPoints)
{
    const std::string file = directory + "/many_points.vxl";
    {
        const Clock clock;
        require("points written", vx::write(file, generate(numPoints)), numPoints);
    }
    const vx::Cloud cloud = vx::open(file);
    require("points of the file", cloud.numPoints().value(), numPoints);
    {
        const Clock clock;
        const std::uint64_t last = (numPoints - 1) / groupPoints;
        require("points of the last group", count(cloud, {.box = {.xMin = groupX(numPoints - 1)}}),
                numPoints - last * groupPoints);
    }
    {
        const Clock clock;
        require("points that are high", count(cloud, {.box = {.zMin = 1}}), numHighPoints);
        require("one point in 2^20", count(cloud, {.fraction = 1.0 / (1 << 20)}),
                ((numPoints - 1) >> 20) + 1);
    }
    {
        const Clock clock;
        checkIndex(file, directory + "/many_points.index", numPoints);
    }
    {
        const Clock clock;
        checkLAS(cloud, numPoints);
    }
}

} // namespace
} // namespace Quillmoran

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: many_points DIRECTORY [MILLIONS]\n");
        return 1;
    }
    try {
        Quillmoran::run(argv[1], static_cast<std::uint64_t>((argc > 2 ? std::atof(argv[2]) : 5000) * 1e6));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
