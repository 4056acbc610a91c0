#include "support/FuzzTarget.h"

#include <atomic>
#include <ctime>
#include <map>
#include <tbb/global_control.h>

// Defined by the runtime of the sanitizers. Without sanitizers memory is not measured.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*)) __attribute__((weak));
std::size_t __sanitizer_get_allocated_size(const volatile void*) __attribute__((weak));
}

namespace Quillmoran::Fuzz {

namespace {

// docs/robustness.md promises these limits. In seconds; sanitizers slow the code down about ten times.
constexpr double baseBytes = 640 << 20;
constexpr double bytesPerByte = 64;
constexpr double baseSeconds = 2;
constexpr double secondsPerByte = 20e-6;
constexpr double secondsPerSample = 5e-6;

std::atomic<std::int64_t> liveBytes{0};
std::atomic<std::int64_t> peakBytes{0};

void countMalloc(const volatile void*, std::size_t size)
{
    const std::int64_t live = liveBytes += static_cast<std::int64_t>(size);
    std::int64_t peak = peakBytes;
    while (live > peak && !peakBytes.compare_exchange_weak(peak, live)) {
    }
}

void countFree(const volatile void* block)
{
    if (block)
        liveBytes -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(block));
}

void limit(double used, double allowed, const char* unit)
{
    if (used > allowed)
        throw Finding("out of proportion: " + std::to_string(used) + ' ' + unit + " instead of " +
                      std::to_string(allowed));
}

} // namespace

bool handlesInput(const std::string& target, Input input)
{
    static const std::map<std::string, Target*> targets = {{"commandline", runCommandLine},
                                                           {"container", runContainer},
                                                           {"http", runHTTP},
                                                           {"las", runLAS},
                                                           {"list", runList},
                                                           {"metadata", runMetadata},
                                                           {"pack", runPack},
                                                           {"rtree", runRTree},
                                                           {"subblocks", runSubblocks},
                                                           {"text", runText},
                                                           {"tileset", runTileSet}};
    // One thread, so that an input always executes the same code.
    static const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    [[maybe_unused]] static const bool counts =
        __sanitizer_install_malloc_and_free_hooks &&
        __sanitizer_install_malloc_and_free_hooks(countMalloc, countFree) != 0;
    liveBytes = 0; // memory that is freed later may have been allocated before
    peakBytes = 0;
    const std::clock_t begin = std::clock();
    std::uint64_t samples = 0;
    const bool isGood = succeeds([&] { samples = targets.at(target)(input); });
    const auto size = static_cast<double>(input.size());
    limit(static_cast<double>(peakBytes), baseBytes + bytesPerByte * size, "bytes");
    limit(static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC,
          baseSeconds + secondsPerByte * size + secondsPerSample * static_cast<double>(samples), "seconds");
    return isGood;
}

} // namespace Quillmoran::Fuzz
