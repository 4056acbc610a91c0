#include "decode/lifting/InverseWavelet.h"

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// By hand: floor((left + right + 2) / 4) is subtracted; 9 * 8000 = 72000 is 6464 in 16 bits, and
// (6464 + 14) >> 4 = 404.
TEST(InverseWavelet, RoundsDownAndTruncatesShortSums)
{
    LiftingStep predict = nullptr, update = nullptr;
    TransformUtils::getInverseWavelet(SINT32, 1, predict, update);
    const std::pair<std::int32_t, std::int32_t> updates[] = {{-1, 0}, {-3, 1}, {1, 0}, {2, -1}, {-7, 2}};
    for (const auto& [left, expected] : updates) {
        std::int32_t low = 0;
        std::int32_t high[2] = {left, 0};
        update(&low, 1, high + 1, 1);
        EXPECT_EQ(low, expected) << left;
    }
    TransformUtils::getInverseWavelet(SINT16, 3, predict, update);
    std::int16_t low[4] = {0, 4000, 4000, 0};
    std::int16_t high = 0;
    predict(low + 1, 1, &high, 1);
    EXPECT_EQ(high, 404);
}

TEST(InverseWavelet, RefusesOtherTypesAndTransforms)
{
    LiftingStep predict = nullptr, update = nullptr;
    const auto message = [&](DataType type, TransformType transform) {
        return failureOf([&] { TransformUtils::getInverseWavelet(type, transform, predict, update); });
    };
    EXPECT_EQ(message(UINT16, 1), "40007 unkown datatype");
    EXPECT_EQ(message(SINT16, 14), "40007 unkown wavelet type");
    EXPECT_EQ(message(FLOAT64, 60), "40007 unkown wavelet type");
    std::vector<int> known;
    for (int transform = 0; transform < 256; ++transform)
        if (TransformUtils::isKnown(static_cast<TransformType>(transform)))
            known.push_back(transform);
    EXPECT_EQ(known, (std::vector<int>{1, 3, 10, 11, 13, 61, 63, 70, 71, 73, 81, 83, 90, 91, 93}));
    for (const auto query :
         {TransformUtils::isInteger, TransformUtils::isFloatingPoint, TransformUtils::isWavelet})
        EXPECT_EQ(failureOf([&] { query(12); }), "-1 bad transform type");
    EXPECT_TRUE(TransformUtils::isWavelet(13));
    EXPECT_FALSE(TransformUtils::isWavelet(90));
}

}} // namespace Quillmoran::Testing
