// One level of the forward transform over a stream of samples: splits them into even and odd samples and
// lifts these as soon as their neighbours are available.
//
//           0        keep       updated   predicted   end         cells of the window
//   low     |== final ==========|------ samples -----------|
//   high    |== final ====================|--- samples ----|
//
// The counterpart is decode/lifting/PipelineStage.cpp. Each band is extended by its outermost sample just
// before the step that reads it. Results do not depend on the number of samples per push().
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

    // Takes the next samples of the level. `last`: no samples follow.
    void push(const T* samples, std::size_t count, bool last);

    // The samples of both bands that the last push() finished. Valid until the next push().
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
    std::size_t m_pad; // neighbours that a step reads on each side
    bool m_predicts;   // whether the transform has the steps
    bool m_updates;
    bool m_atStart = true; // cell 0 is the first pair of the band
    std::vector<T> m_low;
    std::vector<T> m_high;
    std::size_t m_lowEnd = 0; // cells that are filled
    std::size_t m_highEnd = 0;
    std::size_t m_predicted = 0; // high cells before this one are final
    std::size_t m_updated = 0;   // low cells before this one are final
    std::size_t m_lowOut = 0;    // cells that earlier pushes finished
    std::size_t m_highOut = 0;
};

} // namespace Quillmoran
