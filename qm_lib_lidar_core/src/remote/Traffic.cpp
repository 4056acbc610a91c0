#include "remote/Traffic.h"

#include <atomic>

namespace Quillmoran {

namespace {

std::atomic<std::int64_t> totalRequests = 0;
std::atomic<std::int64_t> totalBytes = 0;

} // namespace

Traffic Traffic::total() noexcept
{
    return {totalRequests, totalBytes};
}

void Traffic::add(std::int64_t requests, std::int64_t bytes) noexcept
{
    totalRequests += requests;
    totalBytes += bytes;
}

} // namespace Quillmoran
