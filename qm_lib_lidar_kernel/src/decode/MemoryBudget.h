// What the chains of one query may allocate together. A payload of few bytes can stand for a large subblock,
// and each level of each channel holds one: without a common limit a small file could ask for any amount.
// All chains draw on one budget, from any thread, and give nothing back before the query ends. So whether it
// suffices for a block of points does not depend on the order in which they draw.
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

    // Asked before bytes are allocated. WaveletHeaderRead "bad read -- channel info" when they are too many: it is the
    // channel records that make them so many.
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
