// Makes an index of many tiles, opens it and reads the points in a box, with the times and the memory:
//
//   many_tiles DIRECTORY [TILES]         default: 1000000, whose index has 170 MB
//
// The tiles are cells of a square grid. Only the file of the one in the middle exists; a query opens no other
// tile unless its box meets that tile.
#include <vxunpack/Cloud.h>
#include <vxunpack/PersistentPointSourceWriter.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Quillmoran {
namespace {

constexpr double tileSize = 1000;
constexpr std::uint64_t tilePoints = 10000;

struct Grid
{
    std::string directory;
    std::size_t edge; // tiles

    std::string index() const { return directory + "/many_tiles.index"; }
    std::string tile(std::size_t column, std::size_t row) const
    {
        return directory + "/tiles/" + std::to_string(column) + '_' + std::to_string(row) + ".vxl";
    }
};

Bounds tileBounds(std::size_t column, std::size_t row)
{
    const double x = static_cast<double>(column) * tileSize, y = static_cast<double>(row) * tileSize;
    return {{x, x + tileSize - 0.01}, {y, y + tileSize - 0.01}, {0, 100}};
}

vx::Box boxOf(const Bounds& tile)
{
    return {tile.x.min + 1, tile.x.max - 1, tile.y.min + 1, tile.y.max - 1};
}

// A square of points in steps of 10.
void writeTile(const std::string& file, const Bounds& bounds)
{
    const auto fill = [&](std::uint64_t first, const vx::MutableBlock& block) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            block.x()[i] = bounds.x.min + 10 * static_cast<double>((first + i) % 100);
            block.y()[i] = bounds.y.min + 10 * static_cast<double>((first + i) / 100);
            block.z()[i] = 50;
        }
    };
    const std::vector<vx::Channel> channels = {{"X", vx::FLOAT64, 0.01}, {"Y", vx::FLOAT64, 0.01}, {"Z"}};
    vx::write(file, vx::Cloud::generate(tilePoints, channels, fill));
}

void makeIndex(const Grid& grid)
{
    std::filesystem::create_directories(grid.directory + "/tiles");
    const std::size_t middle = grid.edge / 2;
    const std::string only = grid.tile(middle, middle);
    writeTile(only, tileBounds(middle, middle));
    const Scoped<SimpleFileOpener> opener(SimpleFileOpener::create());
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    writer->init(opener.get());
    writer->add(only.c_str());
    for (std::size_t row = 0; row < grid.edge; ++row)
        for (std::size_t column = 0; column < grid.edge; ++column)
            if (column != middle || row != middle)
                writer->insert({grid.tile(column, row), 0, tileBounds(column, row), tilePoints});
    writer->write(grid.index().c_str());
}

void readBox(const Grid& grid)
{
    const std::size_t middle = grid.edge / 2;
    const vx::Cloud cloud = vx::open(grid.index());
    std::uint64_t count = 0;
    for (const vx::Block& block : cloud.read({.box = boxOf(tileBounds(middle, middle))}))
        count += block.size();
    if (count != 99 * 99)
        throw std::runtime_error("the box has " + std::to_string(count) + " points");
}

void readMissing(const Grid& grid)
{
    try {
        const vx::Cloud cloud = vx::open(grid.index());
        for (const vx::Block& block : cloud.read({.box = boxOf(tileBounds(1, 1))}))
            throw std::runtime_error("a missing tile has " + std::to_string(block.size()) + " points");
    } catch (const Error& error) {
        std::printf("  %s\n", error.what());
        return;
    }
    throw std::runtime_error("a missing tile is no error");
}

void writeBox(const Grid& grid)
{
    const std::size_t middle = grid.edge / 2;
    const vx::WriteOptions options = {.query = {.box = boxOf(tileBounds(middle, middle))}};
    const std::string output = grid.directory + "/box.vxl";
    std::filesystem::remove(output); // otherwise every tile is compared with it
    vx::write(output, vx::open(grid.index()), options);
}

// Each step is a process of its own, so that its memory is its own.
void measure(const char* name, const Grid& grid, void (*step)(const Grid&))
{
    const auto begin = std::chrono::steady_clock::now();
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        int status = 0;
        try {
            step(grid);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "Error: %s\n", error.what());
            status = 1;
        }
        std::fflush(stdout);
        _exit(status);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0)
        throw std::runtime_error(std::string(name) + " failed");
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    std::printf("%-32s %6.2f s, %6.2f s of processor, %5ld MB\n", name, wall.count(),
                seconds(usage.ru_utime) + seconds(usage.ru_stime), usage.ru_maxrss / 1024);
}

} // namespace
} // namespace Quillmoran

int main(int argc, char** argv)
{
    using namespace Quillmoran;
    if (argc < 2) {
        std::fprintf(stderr, "usage: many_tiles DIRECTORY [TILES]\n");
        return 1;
    }
    try {
        const double numTiles = argc > 2 ? std::atof(argv[2]) : 1e6;
        const Grid grid = {std::filesystem::absolute(argv[1]).string(),
                           static_cast<std::size_t>(std::sqrt(numTiles))};
        if (!std::filesystem::exists(grid.index()))
            measure("making the index", grid, makeIndex);
        measure("opening it, and reading a box", grid, readBox);
        measure("reading a tile that is missing", grid, readMissing);
        measure("writing a box to a file", grid, writeBox);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
