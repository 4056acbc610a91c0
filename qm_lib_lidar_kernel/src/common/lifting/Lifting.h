// The terms of the lifting steps, in the arithmetic of each kernel type, and the choice of steps for a
// channel. The inverse and the forward transform are the same steps with opposite signs and in opposite
// order; both are built from the terms below. decode/lifting/InverseWavelet.h shows the shape of a step.
#pragma once

#include "common/coders/KernelTypes.h"
#include "common/coders/TransformUtils.h"
#include "common/lifting/LiftingScheme.h"
#include "platform/ByteOrder.h"
#include <vxunpack/DataType.h>

#include <cstddef>
#include <type_traits>

namespace Quillmoran {

// `update` changes low[0, lowCount) and reads high; `predict` changes high[0, highCount) and reads low. The
// arrays hold the sample type that the step was chosen for.
using LiftingStep = void (*)(void* low, std::size_t lowCount, void* high, std::size_t highCount);

namespace Lifting {

// Integer sums wrap: they are computed in the unsigned type, where overflow is defined. 16-bit samples are
// added in 32 bits and the sum is truncated to 16 bits before it is rounded.
template <class T>
T sum(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>) {
        return a + b;
    } else {
        using U = UnsignedOf<T>;
        return static_cast<T>(static_cast<U>(static_cast<U>(a) + static_cast<U>(b)));
    }
}

template <class T>
T difference(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>) {
        return a - b;
    } else {
        using U = UnsignedOf<T>;
        return static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)));
    }
}

// 9 (b + c) - (a + d)
template <class T>
T weight(T a, T b, T c, T d)
{
    if constexpr (std::is_floating_point_v<T>) {
        return T(9) * (b + c) - (a + d);
    } else {
        using U = UnsignedOf<T>;
        const auto inner = static_cast<U>(static_cast<U>(b) + static_cast<U>(c));
        const auto outer = static_cast<U>(static_cast<U>(a) + static_cast<U>(d));
        return static_cast<T>(static_cast<U>(9u * inner - outer));
    }
}

// (total + offset) >> shift. The offset is added to a 16-bit sum in 32 bits; wider sums wrap. Floating-point
// sums are not rounded.
template <int offset, int shift, class T>
T scaled(T total)
{
    if constexpr (std::is_floating_point_v<T>)
        return total * (T(1) / T(1 << shift));
    else if constexpr (sizeof(T) < sizeof(int))
        return static_cast<T>((total + offset) >> shift);
    else
        return static_cast<T>(sum<T>(total, offset) >> shift);
}

// The update of a low sample; `h` points at the high sample of the same pair.
template <int order, class T>
T updateTerm(const T* h)
{
    // The rounding offsets of the third order are part of the format: 30 and 14, where halves would be 16 and
    // 8.
    if constexpr (order == 1)
        return scaled<2, 2>(sum<T>(h[-1], h[0]));
    else
        return scaled<30, 5>(weight<T>(h[-2], h[-1], h[0], h[1]));
}

// The prediction of a high sample; `l` points at the low sample of the same pair.
template <int order, class T>
T predictTerm(const T* l)
{
    if constexpr (order == 1)
        return scaled<0, 1>(sum<T>(l[0], l[1]));
    else
        return scaled<14, 4>(weight<T>(l[-1], l[0], l[1], l[2]));
}

// The two directions: decoding undoes what encoding did.
enum class Direction
{
    Inverse,
    Forward
};

template <Direction direction, int order, class T>
void update(void* lowSamples, std::size_t lowCount, void* highSamples, std::size_t)
{
    T* __restrict low = static_cast<T*>(lowSamples);
    const T* __restrict high = static_cast<const T*>(highSamples);
    for (std::size_t i = 0; i < lowCount; ++i)
        low[i] = direction == Direction::Forward ? sum<T>(low[i], updateTerm<order, T>(high + i))
                                                 : difference<T>(low[i], updateTerm<order, T>(high + i));
}

template <Direction direction, int order, class T>
void predict(void* lowSamples, std::size_t, void* highSamples, std::size_t highCount)
{
    const T* __restrict low = static_cast<const T*>(lowSamples);
    T* __restrict high = static_cast<T*>(highSamples);
    for (std::size_t i = 0; i < highCount; ++i)
        high[i] = direction == Direction::Forward ? difference<T>(high[i], predictTerm<order, T>(low + i))
                                                  : sum<T>(high[i], predictTerm<order, T>(low + i));
}

inline void doNothing(void*, std::size_t, void*, std::size_t)
{}

// The steps for a kernel type and a transform. InvalidArgument: "unkown wavelet type", "unkown datatype".
template <Direction direction>
void choose(DataType type, TransformType transform, LiftingStep& predictStep, LiftingStep& updateStep)
{
    visitKernelType(type, ErrorCode::InvalidArgument, [&](auto zero) {
        using T = decltype(zero);
        if (!TransformUtils::isKnown(transform))
            QM_THROW(ErrorCode::InvalidArgument, "unkown wavelet type");
        const LiftingScheme& scheme = TransformUtils::getLifting(transform);
        updateStep = predictStep = doNothing;
        if (scheme.order != 0)
            predictStep = scheme.order == 1 ? predict<direction, 1, T> : predict<direction, 3, T>;
        if (scheme.hasUpdate)
            updateStep = scheme.order == 1 ? update<direction, 1, T> : update<direction, 3, T>;
    });
}

} // namespace Lifting

} // namespace Quillmoran
