#include "decode/lifting/InverseWavelet.h"

#include "support/ForwardWavelet.h"
#include "support/Kernels.h"
#include "support/Random.h"
#include <vxunpack/Base.h>

#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace Quillmoran {
namespace {

using Testing::kernelOf;
using Testing::Lifting;
using Testing::Random;

template <class T>
T randomSample(Random& random, bool extreme)
{
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>((random.real() - 0.5) * 1e6);
    else if (extreme)
        return random.chance(0.5) ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
    else
        return static_cast<T>(random.next());
}

// Compares the steps on padded bands with the plain inverse.
template <class T>
void expectSameAsPlain(TransformType transform, std::size_t count, bool extreme)
{
    constexpr std::size_t pad = 4;
    Random random(count * 31 + transform);
    std::vector<T> low(count), high(count);
    for (std::size_t i = 0; i < count; ++i) {
        low[i] = randomSample<T>(random, extreme);
        high[i] = randomSample<T>(random, extreme);
    }
    const std::vector<T> expected = Testing::inverseLevel(low, high, Lifting::of(transform));

    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getInverseWavelet(kernelOf<T>, transform, predict, update);
    std::vector<T> l(count + 2 * pad), h(count + 2 * pad);
    const auto extend = [&](std::vector<T>& cells, const std::vector<T>& band) {
        for (std::size_t i = 0; i < cells.size(); ++i)
            cells[i] =
                Testing::repeated(band, static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(pad));
    };
    extend(l, low);
    extend(h, high);
    update(l.data() + pad, count, h.data() + pad, count);
    extend(l, std::vector<T>(l.begin() + pad, l.begin() + pad + static_cast<std::ptrdiff_t>(count)));
    predict(l.data() + pad, count, h.data() + pad, count);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(l[pad + i], expected[2 * i]) << int{transform} << " count=" << count << " i=" << i;
        ASSERT_EQ(h[pad + i], expected[2 * i + 1]) << int{transform} << " count=" << count << " i=" << i;
    }
}

TEST(InverseWavelet, EqualsThePlainFormulasAtEveryCount)
{
    for (const TransformType transform : std::initializer_list<TransformType>{1, 3, 10, 11, 13}) {
        for (std::size_t count = 1; count <= 40; ++count) {
            for (const bool extreme : {false, true}) {
                expectSameAsPlain<std::int16_t>(transform, count, extreme);
                expectSameAsPlain<std::int32_t>(transform, count, extreme);
                expectSameAsPlain<std::int64_t>(transform, count, extreme);
            }
            const auto real = static_cast<TransformType>(transform + 60);
            expectSameAsPlain<float>(real, count, false);
            expectSameAsPlain<double>(real, count, false);
        }
    }
}

TEST(InverseWavelet, RoundsTowardsMinusInfinity)
{
    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getInverseWavelet(SINT32, 1, predict, update);
    const auto updated = [&](std::int32_t left, std::int32_t right) {
        std::int32_t low = 0;
        std::int32_t high[2] = {left, right};
        update(&low, 1, high + 1, 1);
        return low;
    };
    EXPECT_EQ(updated(-1, 0), 0);
    EXPECT_EQ(updated(-3, 0), 1);
    EXPECT_EQ(updated(1, 0), 0);
    EXPECT_EQ(updated(2, 0), -1);
}

TEST(InverseWavelet, TruncatesShortSumsBeforeRounding)
{
    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getInverseWavelet(SINT16, 3, predict, update);
    std::int16_t low[4] = {0, 4000, 4000, 0};
    std::int16_t high = 0;
    predict(low + 1, 1, &high, 1);
    // 9 * 8000 = 72000 is 6464 in 16 bits; (6464 + 14) >> 4
    EXPECT_EQ(high, 404);
}

TEST(InverseWavelet, RefusesOtherTypesAndTransforms)
{
    LiftingStep predict = nullptr, update = nullptr;
    const auto message = [&](DataType type, TransformType transform) -> std::string {
        try {
            TransformUtils::getInverseWavelet(type, transform, predict, update);
        } catch (const Error& error) {
            EXPECT_EQ(error.error(), 40007);
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(message(UINT16, 1), "unkown datatype");
    EXPECT_EQ(message(SINT16, 14), "unkown wavelet type");
    EXPECT_EQ(message(FLOAT64, 60), "unkown wavelet type");
    for (const TransformType transform :
         std::initializer_list<TransformType>{0, 2, 4, 12, 60, 62, 80, 92, 94, 255}) {
        for (const auto query :
             {TransformUtils::isInteger, TransformUtils::isFloatingPoint, TransformUtils::isWavelet}) {
            EXPECT_THROW(query(transform), Error) << int{transform};
        }
    }
    EXPECT_TRUE(TransformUtils::isWavelet(13));
    EXPECT_FALSE(TransformUtils::isWavelet(90));
}

} // namespace
} // namespace Quillmoran
