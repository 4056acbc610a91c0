#include "encode/lifting/ForwardPipelineStage.h"

#include "support/ForwardWavelet.h"
#include "support/Kernels.h"
#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

template <class T>
std::vector<T> makeSamples(Random& random, std::size_t count)
{
    std::vector<T> samples(count);
    for (T& sample : samples) // integers sometimes wrap
        sample = std::is_integral_v<T> ? static_cast<T>(random.next() >> random.below(8 * sizeof(T)))
                                       : static_cast<T>(random.real() * 1e6 - 5e5);
    return samples;
}

// Compares the plain transform of whole bands with pushes of any length.
template <class T>
void expectTextbookBands(int code)
{
    const auto transform = static_cast<TransformType>(code);
    for (std::size_t count = 0; count < 120; count = count < 20 ? count + 1 : count + 13) {
        Random random(count + 1);
        const std::vector<T> samples = makeSamples<T>(random, count);
        std::vector<T> low, high, expectedLow, expectedHigh;
        forwardLevel(samples, Lifting::of(transform), expectedLow, expectedHigh);

        ForwardPipelineStage<T> stage(kernelOf<T>, transform);
        const auto push = [&](std::size_t begin, std::size_t size, bool last) {
            stage.push(samples.data() + begin, size, last);
            low.insert(low.end(), stage.low().begin(), stage.low().end());
            high.insert(high.end(), stage.high().begin(), stage.high().end());
        };
        std::size_t at = 0;
        while (at < count) {
            const std::size_t size = std::min(count - at, static_cast<std::size_t>(random.below(12)));
            push(at, size, false);
            at += size;
        }
        push(at, 0, true);
        ASSERT_EQ(low, expectedLow) << "transform=" << int{transform} << " count=" << count;
        ASSERT_EQ(high, expectedHigh) << "transform=" << int{transform} << " count=" << count;
    }
}

TEST(ForwardPipelineStage, EqualsThePlainTransformForAnyPushes)
{
    for (const int transform : {1, 3, 10, 11, 13}) {
        expectTextbookBands<std::int16_t>(transform);
        expectTextbookBands<std::int32_t>(transform + 80);
        expectTextbookBands<std::int64_t>(transform);
    }
    for (const int transform : {61, 63, 70, 71, 73}) {
        expectTextbookBands<float>(transform);
        expectTextbookBands<double>(transform);
    }
}

}} // namespace Quillmoran::Testing
