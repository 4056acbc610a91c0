#include "encode/planning/DecimalSurvey.h"

#include "support/Test.h"

#include <cstdio>

namespace Quillmoran::Testing { namespace {

template <class Float>
int decimalsOf(const std::vector<Float>& samples)
{
    ChannelInfo info;
    info.init("Z", sizeof(Float) == 4 ? FLOAT32 : FLOAT64, 0, 0);
    ChannelData channel;
    channel.init(info, samples.size());
    std::copy(samples.begin(), samples.end(), static_cast<Float*>(channel.getData()));
    DecimalSurvey survey;
    survey.add(channel, samples.size() / 2); // in blocks, like a source
    std::copy(samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2), samples.end(),
              static_cast<Float*>(channel.getData()));
    survey.add(channel, samples.size() - samples.size() / 2);
    return survey.get();
}

TEST(DecimalSurvey, FindsTheDecimalsOfAllSamples)
{
    EXPECT_EQ(decimalsOf<double>({5, 411.19, -0.0, nan, 615.3, infinity}), 2);
    EXPECT_EQ(decimalsOf<double>({411.19, std::nextafter(411.19, 412)}), 0) << "the nearest double only";
    EXPECT_EQ(decimalsOf<double>({1.0 / 3, 0.5}), 0);
    EXPECT_EQ(decimalsOf<double>({7, 8, 245380.125, 0.5}), 0) << "all digits show as much";
    EXPECT_EQ(decimalsOf<double>({1e-12}), 12);
    EXPECT_EQ(decimalsOf<double>({1e-13}), 0);
    EXPECT_EQ(decimalsOf<double>({1e300, 0.1}), 0);
    EXPECT_EQ(decimalsOf<double>({0.1, 0.3, 0.5, 0.75}), 2) << "the second block is exact";
    EXPECT_EQ(decimalsOf<float>({0.5f, 0.1f, 2.25f}), 2);
    EXPECT_EQ(decimalsOf<float>({0.123456f}), 6);
    EXPECT_EQ(decimalsOf<float>({0.1234567f}), 0);
    // Three decimals of numbers above 2^22 / 1000 and 2^50 / 1000 are not those of the sample.
    EXPECT_EQ(decimalsOf<float>({4194.3f, 0.1f}), 1);
    EXPECT_EQ(decimalsOf<float>({4194.4f, 0.1f}), 0);
    EXPECT_EQ(decimalsOf<double>({1125899906842.6, 0.1}), 1);
    EXPECT_EQ(decimalsOf<double>({1125899906842.7, 0.1}), 0);
}

// The purpose of the number: a sample printed with these decimals is the original text.
template <class Float>
void checkText(Random& random, int mostDecimals, int& numFound)
{
    const int decimals = static_cast<int>(random.between(1, mostDecimals));
    const double magnitude = std::pow(10, random.between(0, 14 - decimals));
    std::vector<Float> samples;
    std::vector<std::string> texts;
    for (int i = 0; i < 50; ++i) {
        char text[64];
        std::snprintf(text, sizeof text, "%.*f", decimals, (random.real() - 0.5) * magnitude);
        texts.emplace_back(text);
        samples.push_back(static_cast<Float>(std::strtod(text, nullptr)));
    }
    const int found = decimalsOf(samples);
    ASSERT_LE(found, decimals);
    numFound += found != 0;
    for (std::size_t i = 0; found != 0 && i < samples.size(); ++i) {
        const int shown = (found + 2) / 3 * 3;
        char text[64];
        std::snprintf(text, sizeof text, "%.*f", shown, static_cast<double>(samples[i]));
        std::string expected = texts[i] + std::string(12, '0');
        expected.resize(texts[i].find('.') + 1 + static_cast<std::size_t>(shown));
        ASSERT_TRUE(found < decimals || text == expected) << text << " of " << texts[i];
        ASSERT_EQ(static_cast<Float>(std::strtod(text, nullptr)), samples[i]) << text;
    }
}

TEST(DecimalSurvey, IgnoresDecimalsThatTextCannotShow)
{
    Random random(4);
    int numFound = 0;
    for (int i = 0; i < 2000; ++i) {
        checkText<double>(random, 12, numFound);
        checkText<float>(random, 6, numFound);
    }
    EXPECT_GT(numFound, 2000);
}

}} // namespace Quillmoran::Testing
