#include "encode/lifting/ForwardPipelineStage.h"

#include "encode/lifting/ForwardWavelet.h"

#include <algorithm>

namespace Quillmoran {

template <class T>
ForwardPipelineStage<T>::ForwardPipelineStage(DataType type, TransformType transform)
    : m_pad(TransformUtils::getPadding(transform)),
      m_predicts(TransformUtils::isWavelet(transform)),
      m_updates(TransformUtils::hasUpdate(transform))
{
    TransformUtils::getForwardWavelet(type, transform, m_predict, m_update);
}

template <class T>
void ForwardPipelineStage<T>::push(const T* samples, std::size_t count, bool last)
{
    slide();
    m_lowOut = m_updated;
    m_highOut = m_predicted;
    split(samples, count);
    predict(last);
    update(last);
}

// Drops the final cells that later cells do not need.
template <class T>
void ForwardPipelineStage<T>::slide()
{
    const std::size_t final = std::min(m_updated, m_predicted);
    if (final <= m_pad)
        return;
    const std::size_t dropped = final - m_pad;
    const auto move = [&](T* cells, std::size_t end) { std::copy(cells + dropped, cells + end, cells); };
    move(lowCells(), m_lowEnd);
    move(highCells(), m_highEnd);
    for (std::size_t* cell : {&m_lowEnd, &m_highEnd, &m_predicted, &m_updated})
        *cell -= dropped;
    m_atStart = false;
}

template <class T>
void ForwardPipelineStage<T>::split(const T* samples, std::size_t count)
{
    const std::size_t needed = m_pad + m_lowEnd + count / 2 + 1 + m_pad + 1;
    if (m_low.size() < needed) {
        m_low.resize(needed);
        m_high.resize(needed);
    }
    std::size_t i = 0;
    if (count != 0 && m_lowEnd != m_highEnd)
        highCells()[m_highEnd++] = samples[i++];
    T* __restrict low = lowCells() + m_lowEnd;
    T* __restrict high = highCells() + m_highEnd;
    const std::size_t pairs = (count - i) / 2;
    for (std::size_t p = 0; p < pairs; ++p) {
        low[p] = samples[i + 2 * p];
        high[p] = samples[i + 2 * p + 1];
    }
    i += 2 * pairs;
    m_lowEnd += pairs;
    m_highEnd += pairs;
    if (i < count)
        lowCells()[m_lowEnd++] = samples[i];
}

template <class T>
void ForwardPipelineStage<T>::predict(bool last)
{
    if (!m_predicts) {
        m_predicted = m_highEnd;
        return;
    }
    if (m_lowEnd == 0)
        return;
    T* const low = lowCells();
    if (m_atStart)
        std::fill_n(low - m_pad, m_pad, low[0]);
    if (last)
        std::fill_n(low + m_lowEnd, m_pad, low[m_lowEnd - 1]);
    std::size_t end = m_highEnd;
    if (!last)
        end = std::min(end, m_lowEnd > m_pad ? m_lowEnd - m_pad : 0);
    if (end <= m_predicted)
        return;
    m_predict(low + m_predicted, m_lowEnd - m_predicted, highCells() + m_predicted, end - m_predicted);
    m_predicted = end;
}

template <class T>
void ForwardPipelineStage<T>::update(bool last)
{
    if (!m_updates) {
        m_updated = m_lowEnd;
        return;
    }
    T* const high = highCells();
    if (m_highEnd == 0) { // a level of one sample has no update
        if (last)
            m_updated = m_lowEnd;
        return;
    }
    if (m_atStart && m_predicted != 0)
        std::fill_n(high - m_pad, m_pad, high[0]);
    if (last)
        std::fill_n(high + m_highEnd, m_pad, high[m_highEnd - 1]);
    const std::size_t ahead = m_pad - 1; // high cells needed after that of the same pair
    const std::size_t end = last ? m_lowEnd : m_predicted > ahead ? m_predicted - ahead : 0;
    if (end <= m_updated)
        return;
    m_update(lowCells() + m_updated, end - m_updated, high + m_updated, m_predicted - m_updated);
    m_updated = end;
}

template class ForwardPipelineStage<std::int16_t>;
template class ForwardPipelineStage<std::int32_t>;
template class ForwardPipelineStage<std::int64_t>;
template class ForwardPipelineStage<float>;
template class ForwardPipelineStage<double>;

} // namespace Quillmoran
