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
#include "common/coders/KernelTypes.h"
#include "common/coders/TransformUtils.h"
#include "decode/bands/SubbandSource.h"
#include "decode/lifting/InverseWavelet.h"
#include <vxunpack/Base.h>

#include <algorithm>

namespace Quillmoran {

namespace {

template <class T>
void interleave(T* __restrict out, const T* __restrict low, const T* __restrict high, std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs; ++i) {
        out[2 * i] = low[i];
        out[2 * i + 1] = high[i];
    }
}

// Fill the `pad` cells on one side of a band with its outermost sample, or with zeros if the band has no
// samples.
template <class T>
void extendLeft(T* cells, std::size_t count, std::size_t pad)
{
    std::fill(cells - pad, cells, count != 0 ? cells[0] : T(0));
}

template <class T>
void extendRight(T* cells, std::size_t count, std::size_t pad)
{
    std::fill_n(cells + count, pad, count != 0 ? cells[count - 1] : T(0));
}

template <class T>
class PipelineStageImp final : public SubbandSource
{
public:
    PipelineStageImp(std::size_t blockSize, std::unique_ptr<SubbandSource> low,
                     std::unique_ptr<SubbandSource> high)
        : SubbandSource(low->getDataType(), low->getTransformType(), blockSize,
                        low->getNumSamples() + high->getNumSamples()),
          m_low(std::move(low)),
          m_high(std::move(high)),
          m_pad(TransformUtils::getPadding(getTransformType())),
          m_capacity(blockSize + 4 * m_pad)
    {
        TransformUtils::getInverseWavelet(getDataType(), getTransformType(), m_predict, m_update);
    }

    void begin(std::int64_t position) override
    {
        if (!m_lowBuffer) {
            // At its right end the high band is extended by up to pad cells past the end of the low band.
            m_lowBuffer = makeBuffer<T>(m_capacity + 3 * m_pad);
            m_highBuffer = makeBuffer<T>(m_capacity + 3 * m_pad);
        }
        const std::int64_t first = restart(position);
        m_low->begin(first);
        m_high->begin(first);
    }

    void seek(std::int64_t position) override
    {
        const std::int64_t inside = position - 2 * m_base;
        const auto from = static_cast<std::int64_t>(2 * m_first);
        if (inside >= from && inside < static_cast<std::int64_t>(std::max(finished(), m_cursor + 1))) {
            m_cursor = static_cast<std::size_t>(inside);
            return;
        }
        const std::int64_t first = restart(position);
        m_low->seek(first);
        m_high->seek(first);
    }

    std::size_t get(void* out, std::size_t count) override
    {
        auto* samples = static_cast<T*>(out);
        std::size_t copied = 0;
        while (copied < count) {
            if (m_cursor >= finished()) {
                if (atEnd())
                    break;
                slide();
                fill((m_cursor + count - copied + 1) / 2);
                if (m_cursor >= finished())
                    break;
            }
            std::size_t left = std::min(count - copied, finished() - m_cursor);
            T* to = samples + copied;
            copied += left;
            if (m_cursor & 1) {
                *to++ = high()[m_cursor / 2];
                ++m_cursor;
                --left;
            }
            interleave(to, low() + m_cursor / 2, high() + m_cursor / 2, left / 2);
            m_cursor += left;
            if (left & 1)
                to[left - 1] = low()[m_cursor / 2];
        }
        return copied;
    }

    void prepare(std::size_t count, std::vector<CodedSubblock>& work) override
    {
        if (m_cursor + count <= finished() || atEnd())
            return;
        // The last of all the fills that get() makes ends here.
        const std::size_t cells = cellsFor((m_cursor + count + 1) / 2);
        if (cells > m_lowEnd)
            m_low->prepare(cells - m_lowEnd, work);
        if (cells > m_highEnd)
            m_high->prepare(cells - m_highEnd, work);
    }

    void end() override
    {
        m_low->end();
        m_high->end();
        m_lowBuffer.reset();
        m_highBuffer.reset();
    }

private:
    // Empties the window and moves it so that the pair of `position` can be computed. Returns the pair at
    // which the children must begin.
    std::int64_t restart(std::int64_t position)
    {
        const std::int64_t pair = position / 2;
        m_base = std::max<std::int64_t>(pair - static_cast<std::int64_t>(2 * m_pad), 0);
        // In the middle of a band the left neighbours of the first cells are missing.
        m_restored = m_base == 0 ? 0 : m_pad;
        m_predicted = m_first = m_base == 0 ? 0 : 2 * m_pad - 1;
        m_lowEnd = m_highEnd = 0;
        m_cursor = static_cast<std::size_t>(position - 2 * m_base);
        return m_base;
    }

    // Reads and lifts until cell `wanted` is finished, or the window is full, or the band ends.
    void fill(std::size_t wanted)
    {
        const std::size_t cells = std::min(m_capacity, cellsFor(wanted));
        if (cells > m_lowEnd)
            m_lowEnd += m_low->get(low() + m_lowEnd, cells - m_lowEnd);
        if (cells > m_highEnd)
            m_highEnd += m_high->get(high() + m_highEnd, cells - m_highEnd);
        update();
        predict();
    }

    void update()
    {
        if (m_base == 0 && m_restored == 0)
            extendLeft(high(), m_highEnd, m_pad);
        std::size_t end = m_lowEnd;
        if (atEnd())
            extendRight(high(), m_highEnd, m_lowEnd - m_highEnd + m_pad);
        else
            end = m_highEnd >= m_pad - 1 ? std::min(m_lowEnd, m_highEnd - (m_pad - 1)) : 0;
        if (end <= m_restored)
            return;
        m_update(low() + m_restored, end - m_restored, high() + m_restored, m_highEnd);
        m_restored = end;
    }

    void predict()
    {
        if (m_base == 0 && m_predicted == 0 && m_restored != 0)
            extendLeft(low(), m_restored, m_pad);
        std::size_t end = m_highEnd;
        if (atEnd())
            extendRight(low(), m_lowEnd, m_pad);
        else
            end = m_restored >= m_pad ? std::min(m_highEnd, m_restored - m_pad) : 0;
        if (end <= m_predicted)
            return;
        m_predict(low() + m_predicted, m_lowEnd, high() + m_predicted, end - m_predicted);
        m_predicted = end;
    }

    // The number of cells to read to finish a number of cells: after the last finished cell there are pad
    // cells that are only restored and pad - 1 raw ones.
    std::size_t cellsFor(std::size_t finished) const noexcept { return finished + 2 * m_pad - 1; }
    // Drops the finished cells that later cells do not need.
    void slide()
    {
        if (m_predicted < m_pad || m_predicted == m_first)
            return;
        const std::size_t keep = m_predicted - m_pad;
        std::copy(low() + keep, low() + m_lowEnd, low());
        std::copy(high() + keep, high() + m_highEnd, high());
        m_base += static_cast<std::int64_t>(keep);
        m_lowEnd -= keep;
        m_highEnd -= keep;
        m_restored -= keep;
        m_predicted -= keep;
        m_first = m_first > keep ? m_first - keep : 0;
        m_cursor -= 2 * keep;
    }

    bool atEnd() const noexcept
    {
        return m_base + static_cast<std::int64_t>(m_lowEnd) >= m_low->getNumSamples() &&
               m_base + static_cast<std::int64_t>(m_highEnd) >= m_high->getNumSamples();
    }

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

} // namespace

std::unique_ptr<SubbandSource> SubbandSource::createPipeStage(std::size_t blockSize,
                                                              std::unique_ptr<SubbandSource> low,
                                                              std::unique_ptr<SubbandSource> high)
{
    return visitKernelType(low->getDataType(), ErrorCode::General,
                           [&](auto zero) -> std::unique_ptr<SubbandSource> {
                               return std::make_unique<PipelineStageImp<decltype(zero)>>(
                                   blockSize, std::move(low), std::move(high));
                           });
}

} // namespace Quillmoran
