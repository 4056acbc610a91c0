// How much this process has asked of servers.
#pragma once

#include <cstdint>

namespace Quillmoran {

struct Traffic
{
    std::int64_t requests = 0;
    std::int64_t bytes = 0; // of the answers, without their headers

    // Both may be called from any thread.
    static Traffic total() noexcept;
    static void add(std::int64_t requests, std::int64_t bytes) noexcept;
};

} // namespace Quillmoran
