// One level of the forward transform over a stream of samples: splits them into even and odd ones and lifts
// them as soon as their neighbours are there.
//
//           0        keep       updated   predicted   end         cells of the window
//   low     |== final ==========|------ samples -----------|
//   high    |== final ====================|--- samples ----|
//
// The mirror of decode/lifting/PipelineStage.h: each band is extended by its outermost sample just before the step
// that reads it, with the values that it holds then. Results do not depend on how the samples are cut into
// pushes.
#pragma once

#include "common/lifting/Lifting.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Quillmoran {

template <class T>
class ForwardPipelineStage
{
public:
    ForwardPipelineStage(DataType type, TransformType transform);

    // Takes the next samples of the level; `last` tells that none follow.
    void push(const T* samples, std::size_t count, bool last);

    // What the last push has finished of both bands. Valid until the next.
    std::span<const T> low() const noexcept
    {
        return {m_low.data() + m_pad + m_lowOut, m_updated - m_lowOut};
    }
    std::span<const T> high() const noexcept
    {
        return {m_high.data() + m_pad + m_highOut, m_predicted - m_highOut};
    }

private:
    void slide();
    void split(const T* samples, std::size_t count);
    void predict(bool last);
    void update(bool last);
    T* lowCells() noexcept { return m_low.data() + m_pad; }
    T* highCells() noexcept { return m_high.data() + m_pad; }

    LiftingStep m_predict = nullptr;
    LiftingStep m_update = nullptr;
    std::size_t m_pad; // cells on each side for the ends of the band
    bool m_predicts;   // whether the steps do anything
    bool m_updates;
    bool m_atStart = true; // cell 0 is the first pair of the band
    std::vector<T> m_low;
    std::vector<T> m_high;
    std::size_t m_lowEnd = 0; // cells split so far
    std::size_t m_highEnd = 0;
    std::size_t m_predicted = 0; // high cells up to here are final
    std::size_t m_updated = 0;   // low cells up to here are final
    std::size_t m_lowOut = 0;    // cells given out by earlier pushes
    std::size_t m_highOut = 0;
};

extern template class ForwardPipelineStage<std::int16_t>;
extern template class ForwardPipelineStage<std::int32_t>;
extern template class ForwardPipelineStage<std::int64_t>;
extern template class ForwardPipelineStage<float>;
extern template class ForwardPipelineStage<double>;

} // namespace Quillmoran
