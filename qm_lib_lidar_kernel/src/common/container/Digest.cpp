#include "common/container/Digest.h"

#include <bit>
#include <new>
#include <xxhash.h>

namespace Quillmoran {

static_assert(std::endian::native == std::endian::little, "samples are digested as they are in memory");

Digest::Digest() : m_state(XXH3_createState())
{
    if (!m_state)
        throw std::bad_alloc();
    reset();
}

void Digest::Free::operator()(XXH3_state_s* state) const noexcept
{
    XXH3_freeState(state);
}

void Digest::reset() noexcept
{
    XXH3_64bits_reset(m_state.get());
}

void Digest::add(const void* bytes, std::size_t size) noexcept
{
    XXH3_64bits_update(m_state.get(), bytes, size);
}

void Digest::add(const ChannelData& samples, std::size_t first, std::size_t count) noexcept
{
    const std::size_t size = DataTypeUtils::getSize(samples.getDataType());
    add(static_cast<const unsigned char*>(samples.getData()) + first * size, count * size);
}

std::uint64_t Digest::get() const noexcept
{
    return XXH3_64bits_digest(m_state.get());
}

} // namespace Quillmoran
