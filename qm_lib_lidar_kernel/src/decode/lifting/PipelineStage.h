// A stage of a channel's chain: merges a low and a high source by inverse lifting. The counterpart is
// encode/lifting/ForwardPipelineStage.h.
//
// The stage holds a window of pairs (low[i], high[i]) and moves it along the band:
//
//           0        keep      predicted  restored  end          cells of the window
//   low     |== restored ==================|-- raw --|
//   high    |== final ===========|---- raw ----------|
//
// Both steps need `pad` neighbours of a pair on each side, so update stops pad - 1 cells before the end of
// the cells that were read, and predict stops pad cells before that; the next block completes the remaining
// cells. At both ends of the band the missing neighbours are copies of the outermost sample, made just before
// the step that reads them.
#pragma once

#include "decode/bands/SubbandSource.h"
#include "decode/lifting/InverseWavelet.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

template <class T>
class PipelineStageImp final : public SubbandSource
{
public:
    PipelineStageImp(std::size_t blockSize, std::unique_ptr<SubbandSource> low,
                     std::unique_ptr<SubbandSource> high);

    void begin(std::int64_t position) override;
    void seek(std::int64_t position) override;
    std::size_t get(void* out, std::size_t count) override;
    void prepare(std::size_t count, std::vector<CodedSubblock>& work) override;
    void end() override;

private:
    // Empties the window and moves it so that the pair of `position` can be computed. Returns the pair at
    // which the children must begin.
    std::int64_t restart(std::int64_t position);
    // Reads and lifts until cell `wanted` is finished, or the window is full, or the band ends.
    void fill(std::size_t wanted);
    void readChildren(std::size_t cells);
    void update();
    void predict();
    // The number of cells to read to finish a number of cells: after the last finished cell there are pad
    // cells that are only restored and pad - 1 raw ones.
    std::size_t cellsFor(std::size_t finished) const noexcept { return finished + 2 * m_pad - 1; }
    // Drops the finished cells that later cells do not need.
    void slide();

    bool atEnd() const noexcept;
    // The number of finished samples, from the first cell of the window on.
    std::size_t finished() const noexcept { return atEnd() ? m_lowEnd + m_highEnd : 2 * m_predicted; }
    T* low() noexcept { return m_lowBuffer.get() + m_pad; }
    T* high() noexcept { return m_highBuffer.get() + m_pad; }

    std::unique_ptr<SubbandSource> m_low;
    std::unique_ptr<SubbandSource> m_high;
    LiftingStep m_update = nullptr;
    LiftingStep m_predict = nullptr;
    std::size_t m_pad;      // neighbours that a step reads on each side
    std::size_t m_capacity; // cells of the window

    Buffer<T> m_lowBuffer;
    Buffer<T> m_highBuffer;
    std::int64_t m_base = 0;  // index of the pair in cell 0
    std::size_t m_first = 0;  // the first cell that can be finished
    std::size_t m_lowEnd = 0; // cells read
    std::size_t m_highEnd = 0;
    std::size_t m_restored = 0;  // low cells before this one are updated
    std::size_t m_predicted = 0; // high cells before this one are final
    std::size_t m_cursor = 0;    // next sample, counted from cell 0
};

} // namespace Quillmoran
