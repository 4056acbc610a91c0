#include <vxunpack/Object.h>

namespace Quillmoran {

Object::~Object() = default;

int Object::retain() const noexcept
{
    return m_count.fetch_add(1, std::memory_order_relaxed) + 1;
}

int Object::release() const noexcept
{
    const int count = m_count.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count == 0)
        delete this;
    return count;
}

} // namespace Quillmoran
