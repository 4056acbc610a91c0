// The memory that the chains of one query may allocate together. A payload of a few bytes can stand for a
// large subblock, and every level of every channel holds one: without a common limit a small file could
// allocate any amount.
//
// All chains take memory from one budget, from any thread, and give none back before the query ends. So the
// result does not depend on the order in which they take it.
#pragma once

#include <vxunpack/Base.h>

#include <atomic>
#include <cstdint>

namespace Quillmoran {

class MemoryBudget
{
public:
    explicit MemoryBudget(std::uint64_t bytes = UINT64_MAX) noexcept : m_left(bytes) {}

    void reset(std::uint64_t bytes) noexcept
    {
        m_left = bytes;
        m_isExceeded = false;
    }

    // Called before an allocation. Throws WaveletHeaderRead "bad read -- channel info" if the budget is
    // exceeded, because the channel records determine the sizes.
    void take(std::uint64_t bytes)
    {
        std::uint64_t left = m_left;
        do {
            if (bytes > left) {
                m_isExceeded = true;
                throwExceeded();
            }
        } while (!m_left.compare_exchange_weak(left, left - bytes));
    }

    [[noreturn]] static void throwExceeded()
    {
        QM_THROW(ErrorCode::WaveletHeaderRead, "bad read -- channel info");
    }

    bool isExceeded() const noexcept { return m_isExceeded; }

private:
    std::atomic<std::uint64_t> m_left;
    std::atomic<bool> m_isExceeded{false};
};

} // namespace Quillmoran
