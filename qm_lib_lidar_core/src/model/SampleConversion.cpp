#include "model/SampleConversion.h"

#include <cmath>
#include <cstdint>
#include <type_traits>

namespace Quillmoran::SampleConversion {

namespace {

template <class D>
D fromRounded(double value) noexcept
{
    if constexpr (std::is_same_v<D, std::uint64_t>) {
        constexpr double topBit = 9223372036854775808.0;
        if (value >= topBit)
            return static_cast<std::uint64_t>(truncate<std::int64_t>(value - topBit)) | 1ull << 63;
        return static_cast<std::uint64_t>(truncate<std::int64_t>(value));
    } else if constexpr (std::is_same_v<D, std::uint32_t> || std::is_same_v<D, std::int64_t>) {
        return static_cast<D>(truncate<std::int64_t>(value));
    } else {
        return static_cast<D>(truncate<std::int32_t>(value));
    }
}

template <class D, class S>
void convertLoop(D* __restrict dst, const S* __restrict src, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        dst[i] = static_cast<D>(src[i]);
}

template <class D, class S>
void quantizeLoop(D* __restrict dst, const S* __restrict src, double offset, double scale, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        dst[i] = fromRounded<D>(std::floor((static_cast<double>(src[i]) - offset) / scale + 0.5));
}

template <class D, class S>
void dequantizeLoop(D* __restrict dst, const S* __restrict src, double offset, double scale,
                    std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        dst[i] = static_cast<D>(static_cast<double>(src[i]) * scale + offset);
}

// Calls body(D*, const S*) with typed pointers.
template <class Body>
void dispatch(void* dst, DataType dstType, const void* src, DataType srcType, Body body)
{
    visitDataType(dstType, [&](auto d) {
        visitDataType(srcType, [&](auto s) {
            body(static_cast<decltype(d)*>(dst), static_cast<const decltype(s)*>(src));
        });
    });
}

template <class T>
using Pointee = std::remove_const_t<std::remove_pointer_t<T>>;

} // namespace

void convert(void* dst, DataType dstType, const void* src, DataType srcType, std::size_t count)
{
    dispatch(dst, dstType, src, srcType, [count](auto* d, auto* s) {
        using D = Pointee<decltype(d)>;
        using S = Pointee<decltype(s)>;
        if constexpr (std::is_floating_point_v<D> == std::is_floating_point_v<S>)
            convertLoop(d, s, count);
    });
}

void quantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
              std::size_t count)
{
    dispatch(dst, dstType, src, srcType, [=](auto* d, auto* s) {
        using D = Pointee<decltype(d)>;
        using S = Pointee<decltype(s)>;
        if constexpr (std::is_integral_v<D> && std::is_floating_point_v<S>)
            quantizeLoop(d, s, offset, scale, count);
    });
}

void dequantize(void* dst, DataType dstType, const void* src, DataType srcType, double offset, double scale,
                std::size_t count)
{
    dispatch(dst, dstType, src, srcType, [=](auto* d, auto* s) {
        using D = Pointee<decltype(d)>;
        using S = Pointee<decltype(s)>;
        if constexpr (std::is_floating_point_v<D> && std::is_integral_v<S>)
            dequantizeLoop(d, s, offset, scale, count);
    });
}

} // namespace Quillmoran::SampleConversion
