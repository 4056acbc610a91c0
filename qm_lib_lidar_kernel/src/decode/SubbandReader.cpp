#include "decode/SubbandReader.h"

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

// Far above what any writer uses; bounds what one damaged record can make a leaf allocate.
constexpr std::uint64_t maxSubblockSamples = std::uint64_t{1} << 24;

} // namespace

void SubblockCheckpoints::reset(const Checkpoint& start, std::size_t latest)
{
    m_stride = smallestStride;
    m_places.assign(1, start);
    m_latest.assign(latest, start);
    m_oldest = 0;
}

void SubblockCheckpoints::offer(const Checkpoint& place)
{
    m_latest[m_oldest] = place;
    m_oldest = m_oldest + 1 == m_latest.size() ? 0 : m_oldest + 1;
    if (place.headers - m_places.back().headers < m_stride)
        return;
    if (m_places.size() == capacity) {
        for (std::size_t i = 1; i < capacity / 2; ++i)
            m_places[i] = m_places[2 * i];
        m_places.resize(capacity / 2);
        m_stride *= 2;
        if (place.headers - m_places.back().headers < m_stride)
            return;
    }
    m_places.push_back(place);
}

const SubblockCheckpoints::Checkpoint& SubblockCheckpoints::before(std::uint64_t subblock) const
{
    const auto behind =
        std::upper_bound(m_places.begin(), m_places.end(), subblock,
                         [](std::uint64_t value, const Checkpoint& place) { return value < place.subblock; });
    const Checkpoint* best = &*std::prev(behind); // the first place is subblock 0
    for (const Checkpoint& place : m_latest)
        if (place.subblock <= subblock && place.subblock > best->subblock)
            best = &place;
    return *best;
}

namespace {

// A chain's stages look back up to this many samples of a band.
constexpr std::size_t mostLookBack = 32;

// A stream over a stretch that ends where the stretch ends. Coarse bands are small, and so is their buffer.
void openStretch(SubblockReader& reader, const IO::Location& stretch, Scoped<IO>& bounded,
                 StreamReader& stream)
{
    constexpr std::int64_t largestBuffer = 16384;
    bounded.reset(BoundedIO::create(stretch));
    const std::int64_t bytes = std::clamp<std::int64_t>(stretch.length(), 1, largestBuffer);
    reader.takeMemory(static_cast<std::uint64_t>(bytes));
    stream.init(bounded.get(), true, static_cast<std::size_t>(bytes));
    stream.seek(stretch.offset(), Stream::SEEK_FROM_START);
}

} // namespace

template <class T>
SubbandReaderImp<T>::SubbandReaderImp(SubblockReader& reader, unsigned level, bool isHigh,
                                      const BandStretches& stretches, std::int64_t numSamples)
    : SubbandSource(reader.getDataType(), reader.getTransformType(), reader.getName(), level, isHigh,
                    reader.getSubblockSize(), numSamples),
      m_reader(reader),
      m_stretches(stretches)
{
    if (std::min<std::uint64_t>(getBlockSize(), static_cast<std::uint64_t>(numSamples)) > maxSubblockSamples)
        QM_THROW(40203, "bad read -- channel info");
}

template <class T>
void SubbandReaderImp<T>::begin(std::int64_t position)
{
    m_loaded = noSubblock;
    m_next = 0;
    m_pendingZeros = 0;
    m_position = position;
    m_headers.close();
    m_data.close();
    m_headerStretch.reset();
}

template <class T>
void SubbandReaderImp<T>::open()
{
    openStretch(m_reader, m_stretches.headers, m_headerStretch, m_headers);
    if (!m_stretches.interleaved)
        openStretch(m_reader, m_stretches.data, m_dataStretch, m_data);
    m_checkpoints.reset({0, m_headers.tell(), dataStream().tell(), 0}, mostLookBack / getBlockSize() + 2);
}

template <class T>
void SubbandReaderImp<T>::seek(std::int64_t position)
{
    m_position = position; // the streams follow when samples are asked for
}

template <class T>
void SubbandReaderImp<T>::walkTo(std::uint64_t subblock)
{
    const auto& place = m_checkpoints.before(subblock);
    // Resuming helps backwards, and forwards over headers that were walked before.
    if (subblock < m_next || place.subblock > m_next) {
        m_headers.seek(place.headers, Stream::SEEK_FROM_START);
        if (!m_stretches.interleaved)
            m_data.seek(place.data, Stream::SEEK_FROM_START);
        m_pendingZeros = place.pendingZeros;
        m_next = place.subblock;
    }
    m_pendingZeros = m_reader.skipSubblocks(subblock - m_next, m_headers, dataStream(), m_pendingZeros);
    m_next = subblock;
    m_checkpoints.offer({m_next, m_headers.tell(), dataStream().tell(), m_pendingZeros});
}

template <class T>
std::size_t SubbandReaderImp<T>::load(std::uint64_t subblock)
{
    const std::uint64_t first = subblock * getBlockSize();
    const std::uint64_t behind = static_cast<std::uint64_t>(getNumSamples()) - first;
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(getBlockSize(), behind));
    if (subblock == m_loaded)
        return count;
    m_loaded = noSubblock;
    if (!m_headerStretch)
        open();
    if (subblock != m_next)
        walkTo(subblock);
    if (m_pendingZeros == 0)
        m_pendingZeros = m_reader.readHeader(m_headers);
    m_isZero = m_pendingZeros != 0;
    if (m_isZero) {
        --m_pendingZeros;
    } else {
        reserve(count);
        m_reader.loadPayload(subblock, dataStream(), m_samples.get(), count);
    }
    m_next = subblock + 1;
    m_checkpoints.offer({m_next, m_headers.tell(), dataStream().tell(), m_pendingZeros});
    m_loaded = subblock;
    return count;
}

template <class T>
void SubbandReaderImp<T>::reserve(std::size_t count)
{
    if (count <= m_capacity)
        return;
    m_reader.takeMemory((count - m_capacity) * sizeof(T));
    m_samples.reset(); // gives it back before the larger one is taken
    m_samples = makeBuffer<T>(count);
    m_capacity = count;
}

template <class T>
std::size_t SubbandReaderImp<T>::get(void* out, std::size_t count)
{
    auto* samples = static_cast<T*>(out);
    std::size_t copied = 0;
    while (copied < count && m_position < getNumSamples()) {
        const std::uint64_t subblock = static_cast<std::uint64_t>(m_position) / getBlockSize();
        const std::size_t inside =
            static_cast<std::size_t>(static_cast<std::uint64_t>(m_position) % getBlockSize());
        const std::size_t taken = std::min(count - copied, load(subblock) - inside);
        if (m_isZero)
            std::fill_n(samples + copied, taken, T(0));
        else
            std::memcpy(samples + copied, m_samples.get() + inside, taken * sizeof(T));
        copied += taken;
        m_position += static_cast<std::int64_t>(taken);
    }
    return copied;
}

template <class T>
void SubbandReaderImp<T>::end()
{
    m_headers.close();
    m_data.close();
    m_headerStretch.reset();
    m_samples.reset();
    m_capacity = 0;
    m_loaded = noSubblock;
}

template class SubbandReaderImp<std::int16_t>;
template class SubbandReaderImp<std::int32_t>;
template class SubbandReaderImp<std::int64_t>;
template class SubbandReaderImp<float>;
template class SubbandReaderImp<double>;

} // namespace Quillmoran
