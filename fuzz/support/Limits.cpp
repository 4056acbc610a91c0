#include "support/Limits.h"

#include "support/FuzzTarget.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>

// Defined by the runtime of the sanitizers. Without sanitizers memory is not measured.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*)) __attribute__((weak));
std::size_t __sanitizer_get_allocated_size(const volatile void*) __attribute__((weak));
}

namespace Quillmoran::Fuzz {

namespace {

constexpr std::int64_t baseBytes = std::int64_t{640} << 20;
constexpr std::int64_t bytesPerByte = 64;
// In seconds. Sanitizers slow the code down about ten times.
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

double processorSeconds()
{
    std::timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace

Limits::Limits(std::size_t inputBytes) : m_inputBytes(inputBytes), m_begin(processorSeconds())
{
    [[maybe_unused]] static const bool counts =
        __sanitizer_install_malloc_and_free_hooks &&
        __sanitizer_install_malloc_and_free_hooks(countMalloc, countFree) != 0;
    liveBytes = 0; // memory that is freed later may have been allocated before
    peakBytes = 0;
}

void Limits::check(std::uint64_t samples) const
{
    const auto bytes = static_cast<double>(m_inputBytes);
    const double seconds = processorSeconds() - m_begin;
    const double allowed =
        baseSeconds + secondsPerByte * bytes + secondsPerSample * static_cast<double>(samples);
    const std::int64_t memory = baseBytes + bytesPerByte * static_cast<std::int64_t>(m_inputBytes);
    if (peakBytes > memory)
        std::fprintf(stderr, "%zu bytes took %lld bytes of memory\n", m_inputBytes,
                     static_cast<long long>(peakBytes));
    require(peakBytes <= memory, "an input takes memory out of proportion");
    if (seconds > allowed)
        std::fprintf(stderr, "%zu bytes and %llu samples took %.1f s\n", m_inputBytes,
                     static_cast<unsigned long long>(samples), seconds);
    require(seconds <= allowed, "an input takes time out of proportion");
}

} // namespace Quillmoran::Fuzz
