// Counts the points of each class with several threads that share one opened cloud, each reading a strip.
//
//   parallel_read INPUT [THREADS]
#include <vxunpack/vxunpack.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>
#include <vector>

namespace {

using Counts = std::array<std::atomic<long>, 256>;

// Half-open strips: a point on the border of two strips belongs to the right one.
void countStrip(const vx::Cloud& cloud, vx::Box strip, bool isLast, Counts& counts)
{
    for (const vx::Block& block : cloud.read({.box = strip, .channels = {"ClassId"}})) {
        const auto classes = block.column<std::uint8_t>("ClassId");
        for (std::size_t i = 0; i < block.size(); ++i)
            // The query also gives points within half a coordinate step of the box.
            if (block.x()[i] >= strip.xMin && (block.x()[i] < strip.xMax || isLast))
                ++counts[classes[i]];
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: parallel_read INPUT [THREADS]\n");
        return 1;
    }
    const int numThreads = argc > 2 ? std::max(1, std::atoi(argv[2])) : 4;
    try {
        const vx::Cloud cloud = vx::open(argv[1]);
        const vx::Box bounds = cloud.bounds();
        Counts counts{};
        std::vector<std::exception_ptr> errors(static_cast<std::size_t>(numThreads));
        std::vector<std::thread> threads;
        for (int i = 0; i < numThreads; ++i)
            threads.emplace_back([&, i] {
                try {
                    const double width = (bounds.xMax - bounds.xMin) / numThreads;
                    const bool isLast = i + 1 == numThreads;
                    const vx::Box strip = {bounds.xMin + i * width,
                                           isLast ? bounds.xMax : bounds.xMin + (i + 1) * width};
                    countStrip(cloud, strip, isLast, counts);
                } catch (...) {
                    errors[static_cast<std::size_t>(i)] = std::current_exception();
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        for (const std::exception_ptr& error : errors)
            if (error)
                std::rethrow_exception(error);
        for (std::size_t i = 0; i < counts.size(); ++i)
            if (counts[i] != 0)
                std::printf("class %zu: %ld points\n", i, counts[i].load());
    } catch (const vx::Error& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
    return 0;
}
