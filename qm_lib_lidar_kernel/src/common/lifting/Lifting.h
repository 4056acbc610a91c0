// The terms of the lifting steps, in the arithmetic of each kernel type, and the choice of steps for a
// channel. The inverse transform and the forward one are the same steps with the opposite sign, in the
// opposite order: both are made of what stands here. See decode/lifting/InverseWavelet.h for the shape of a step.
#pragma once

#include "common/coders/TransformUtils.h"
#include "platform/ByteOrder.h"
#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Quillmoran {

// `update` changes low[0, lowCount) and reads high; `predict` changes high[0, highCount) and reads low. The
// arrays hold the sample type that the step was chosen for.
using LiftingStep = void (*)(void* low, std::size_t lowCount, void* high, std::size_t highCount);

namespace Lifting {

// Integer sums wrap: they are formed in the unsigned type, where that is defined. 16-bit samples are summed
// in 32 bits and the sum is cut to 16 bits before it is rounded.
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

// (total + offset) >> shift. A 16-bit sum has room for the offset in 32 bits; wider ones wrap. Floating-point
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

// What a low sample is updated by; `h` points at the high sample of the same pair.
template <int order, class T>
T updateTerm(const T* h)
{
    // The rounding offsets of the third order are 30 and 14 where halves would be 16 and 8: they are part of
    // the format.
    if constexpr (order == 1)
        return scaled<2, 2>(sum<T>(h[-1], h[0]));
    else
        return scaled<30, 5>(weight<T>(h[-2], h[-1], h[0], h[1]));
}

// What a high sample is predicted as; `l` points at the low sample of the same pair.
template <int order, class T>
T predictTerm(const T* l)
{
    if constexpr (order == 1)
        return scaled<0, 1>(sum<T>(l[0], l[1]));
    else
        return scaled<14, 4>(weight<T>(l[-1], l[0], l[1], l[2]));
}

// The two directions: decoding undoes what encoding did.
struct Inverse
{
    template <class T>
    static T update(T low, T term)
    {
        return difference<T>(low, term);
    }
    template <class T>
    static T predict(T high, T term)
    {
        return sum<T>(high, term);
    }
};

struct Forward
{
    template <class T>
    static T update(T low, T term)
    {
        return sum<T>(low, term);
    }
    template <class T>
    static T predict(T high, T term)
    {
        return difference<T>(high, term);
    }
};

template <class Direction, int order, class T>
void update(void* lowSamples, std::size_t lowCount, void* highSamples, std::size_t)
{
    T* __restrict low = static_cast<T*>(lowSamples);
    const T* __restrict high = static_cast<const T*>(highSamples);
    for (std::size_t i = 0; i < lowCount; ++i)
        low[i] = Direction::template update<T>(low[i], updateTerm<order, T>(high + i));
}

template <class Direction, int order, class T>
void predict(void* lowSamples, std::size_t, void* highSamples, std::size_t highCount)
{
    const T* __restrict low = static_cast<const T*>(lowSamples);
    T* __restrict high = static_cast<T*>(highSamples);
    for (std::size_t i = 0; i < highCount; ++i)
        high[i] = Direction::template predict<T>(high[i], predictTerm<order, T>(low + i));
}

inline void doNothing(void*, std::size_t, void*, std::size_t)
{}

template <class Direction, class T>
void choose(TransformType transform, LiftingStep& predictStep, LiftingStep& updateStep)
{
    // The three coders share their lifting steps: 61 and 81 lift like 1, 93 like 13.
    int reduced = transform;
    while (reduced > 20)
        reduced -= 20;
    updateStep = predictStep = doNothing;
    switch (reduced) {
    case 1:
        updateStep = update<Direction, 1, T>;
        [[fallthrough]];
    case 11:
        predictStep = predict<Direction, 1, T>;
        return;
    case 3:
        updateStep = update<Direction, 3, T>;
        [[fallthrough]];
    case 13:
        predictStep = predict<Direction, 3, T>;
        return;
    case 10:
        return;
    default:
        QM_THROW(ErrorCode::InvalidArgument, "unkown wavelet type");
    }
}

// The steps for a kernel type and a transform. Errors InvalidArgument: "unkown wavelet type", "unkown datatype".
template <class Direction>
void choose(DataType type, TransformType transform, LiftingStep& predictStep, LiftingStep& updateStep)
{
    switch (type) {
    case SINT16:
        return choose<Direction, std::int16_t>(transform, predictStep, updateStep);
    case SINT32:
        return choose<Direction, std::int32_t>(transform, predictStep, updateStep);
    case SINT64:
        return choose<Direction, std::int64_t>(transform, predictStep, updateStep);
    case FLOAT32:
        return choose<Direction, float>(transform, predictStep, updateStep);
    case FLOAT64:
        return choose<Direction, double>(transform, predictStep, updateStep);
    default:
        QM_THROW(ErrorCode::InvalidArgument, "unkown datatype");
    }
}

} // namespace Lifting

} // namespace Quillmoran
