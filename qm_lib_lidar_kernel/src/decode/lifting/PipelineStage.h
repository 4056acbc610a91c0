// A stage of a channel's chain: merges a low and a high source by inverse lifting.
//
// The stage holds a window of pairs (low[i], high[i]) and moves it along the band:
//
//           0        keep      predicted  restored  end          cells of the window
//   low     |== restored ==================|-- raw --|
//   high    |== final ===========|---- raw ----------|
//
// A pair needs `pad` neighbours on each side at both steps, so update stops pad - 1 cells before the end of
// what was read and predict another pad before that; the rest waits for the next block. At the two ends of
// the band the missing neighbours are copies of the outermost sample, taken just before the step that reads
// them.
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
    // Empties the window and moves it to where the pair of `position` can be computed; returns the pair that
    // the children must begin with.
    std::int64_t restart(std::int64_t position);
    // Reads and lifts until the window holds the finished cell `wanted`, as far as its size and the band
    // allow.
    void fill(std::size_t wanted);
    void readChildren(std::size_t cells);
    void update();
    void predict();
    // How many cells must be read before so many are finished: behind a finished cell stand pad cells that
    // are only restored and pad - 1 that are raw.
    std::size_t cellsFor(std::size_t finished) const noexcept { return finished + 2 * m_pad - 1; }
    // Drops the finished cells that no later cell needs.
    void slide();

    bool atEnd() const noexcept;
    // Samples of the window, from its first cell on, that are finished.
    std::size_t finished() const noexcept { return atEnd() ? m_lowEnd + m_highEnd : 2 * m_predicted; }
    T* low() noexcept { return m_lowBuffer.get() + m_pad; }
    T* high() noexcept { return m_highBuffer.get() + m_pad; }

    std::unique_ptr<SubbandSource> m_low;
    std::unique_ptr<SubbandSource> m_high;
    LiftingStep m_update = nullptr;
    LiftingStep m_predict = nullptr;
    std::size_t m_pad;      // cells on each side of a buffer for the ends of the band
    std::size_t m_capacity; // cells of the window

    Buffer<T> m_lowBuffer;
    Buffer<T> m_highBuffer;
    std::int64_t m_base = 0;  // the pair of cell 0
    std::size_t m_first = 0;  // the first cell that can be finished
    std::size_t m_lowEnd = 0; // cells read
    std::size_t m_highEnd = 0;
    std::size_t m_restored = 0;  // low cells up to here are updated
    std::size_t m_predicted = 0; // high cells up to here are final
    std::size_t m_cursor = 0;    // next sample, counted from cell 0; it lies in a finished or a coming cell
};

} // namespace Quillmoran
