#include "decode/InverseWavelet.h"

#include "platform/Base.h"
#include "platform/ByteOrder.h"

#include <cstdint>
#include <type_traits>

namespace Quillmoran {

namespace {

// Integer sums wrap: they are formed in the unsigned type, where that is defined. 16-bit samples are summed
// in 32 bits and the sum is cut to 16 bits before it is rounded, as it was when they were coded.
template <class T>
T wrappingSum(T a, T b)
{
    using U = UnsignedOf<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) + static_cast<U>(b)));
}

template <class T>
T wrappingDifference(T a, T b)
{
    using U = UnsignedOf<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)));
}

// 9 (b + c) - (a + d)
template <class T>
T wrappingWeight(T a, T b, T c, T d)
{
    using U = UnsignedOf<T>;
    const auto inner = static_cast<U>(static_cast<U>(b) + static_cast<U>(c));
    const auto outer = static_cast<U>(static_cast<U>(a) + static_cast<U>(d));
    return static_cast<T>(static_cast<U>(9u * inner - outer));
}

// (sum + offset) >> shift. A 16-bit sum has room for the offset in 32 bits; wider ones wrap.
template <class T>
T roundedShift(T sum, int offset, int shift)
{
    if constexpr (sizeof(T) < sizeof(int))
        return static_cast<T>((sum + offset) >> shift);
    else
        return static_cast<T>(wrappingSum<T>(sum, offset) >> shift);
}

template <class T>
void updateOrder1(T* __restrict low, std::size_t lowCount, const T* __restrict high)
{
    for (std::size_t i = 0; i < lowCount; ++i) {
        const T* h = high + i;
        if constexpr (std::is_floating_point_v<T>)
            low[i] = low[i] - (h[-1] + h[0]) * T(0.25);
        else
            low[i] = wrappingDifference<T>(low[i], roundedShift<T>(wrappingSum<T>(h[-1], h[0]), 2, 2));
    }
}

template <class T>
void predictOrder1(const T* __restrict low, T* __restrict high, std::size_t highCount)
{
    for (std::size_t i = 0; i < highCount; ++i) {
        const T* l = low + i;
        if constexpr (std::is_floating_point_v<T>)
            high[i] = high[i] + (l[0] + l[1]) * T(0.5);
        else
            high[i] = wrappingSum<T>(high[i], roundedShift<T>(wrappingSum<T>(l[0], l[1]), 0, 1));
    }
}

// The rounding offsets of the third order are 30 and 14 where halves would be 16 and 8: they are part of the
// format.
template <class T>
void updateOrder3(T* __restrict low, std::size_t lowCount, const T* __restrict high)
{
    for (std::size_t i = 0; i < lowCount; ++i) {
        const T* h = high + i;
        if constexpr (std::is_floating_point_v<T>)
            low[i] = low[i] - (T(9) * (h[-1] + h[0]) - (h[-2] + h[1])) * T(0.03125);
        else
            low[i] = wrappingDifference<T>(
                low[i], roundedShift<T>(wrappingWeight<T>(h[-2], h[-1], h[0], h[1]), 30, 5));
    }
}

template <class T>
void predictOrder3(const T* __restrict low, T* __restrict high, std::size_t highCount)
{
    for (std::size_t i = 0; i < highCount; ++i) {
        const T* l = low + i;
        if constexpr (std::is_floating_point_v<T>)
            high[i] = high[i] + (T(9) * (l[0] + l[1]) - (l[-1] + l[2])) * T(0.0625);
        else
            high[i] =
                wrappingSum<T>(high[i], roundedShift<T>(wrappingWeight<T>(l[-1], l[0], l[1], l[2]), 14, 4));
    }
}

template <class T>
void update_ORDER1(void* low, std::size_t lowCount, void* high, std::size_t)
{
    updateOrder1(static_cast<T*>(low), lowCount, static_cast<const T*>(high));
}

template <class T>
void predict_ORDER1(void* low, std::size_t, void* high, std::size_t highCount)
{
    predictOrder1(static_cast<const T*>(low), static_cast<T*>(high), highCount);
}

template <class T>
void update_ORDER3(void* low, std::size_t lowCount, void* high, std::size_t)
{
    updateOrder3(static_cast<T*>(low), lowCount, static_cast<const T*>(high));
}

template <class T>
void predict_ORDER3(void* low, std::size_t, void* high, std::size_t highCount)
{
    predictOrder3(static_cast<const T*>(low), static_cast<T*>(high), highCount);
}

void update_NOP(void*, std::size_t, void*, std::size_t)
{}
void predict_NOP(void*, std::size_t, void*, std::size_t)
{}

template <class T>
void choose(int transform, LiftingStep& predict, LiftingStep& update)
{
    switch (transform) {
    case 1:
        update = update_ORDER1<T>;
        predict = predict_ORDER1<T>;
        return;
    case 3:
        update = update_ORDER3<T>;
        predict = predict_ORDER3<T>;
        return;
    case 10:
        update = update_NOP;
        predict = predict_NOP;
        return;
    case 11:
        update = update_NOP;
        predict = predict_ORDER1<T>;
        return;
    case 13:
        update = update_NOP;
        predict = predict_ORDER3<T>;
        return;
    default:
        QM_THROW(40007, "unkown wavelet type");
    }
}

} // namespace

void TransformUtils::getInverseWavelet(DataType type, TransformType transform, LiftingStep& predict,
                                       LiftingStep& update)
{
    // The three coders share their lifting steps: 61 and 81 lift like 1, 93 like 13.
    int reduced = transform;
    while (reduced > 20)
        reduced -= 20;
    switch (type) {
    case SINT16:
        return choose<std::int16_t>(reduced, predict, update);
    case SINT32:
        return choose<std::int32_t>(reduced, predict, update);
    case SINT64:
        return choose<std::int64_t>(reduced, predict, update);
    case FLOAT32:
        return choose<float>(reduced, predict, update);
    case FLOAT64:
        return choose<double>(reduced, predict, update);
    default:
        QM_THROW(40007, "unkown datatype");
    }
}

} // namespace Quillmoran
