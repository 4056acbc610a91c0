#include "platform/Interrupt.h"

#include <atomic>

namespace Quillmoran {

namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "stored from a signal handler");

} // namespace

bool isInterrupted() noexcept
{
    return interrupted;
}

void setInterrupted() noexcept
{
    interrupted = true;
}

} // namespace Quillmoran
