#include "encode/bands/SubbandWriter.h"

#include <algorithm>
#include <utility>

namespace Quillmoran {

void SubbandWriter::Subblock::encode(SubblockWriter& writer)
{
    headers.clear();
    data.clear();
    isZero = SubblockWriter::isZero(samples.data(), count * DataTypeUtils::getSize(writer.getFormat().type));
    if (!isZero)
        writer.encode(samples.data(), count, headers, data);
}

SubbandWriter::SubbandWriter(const SubblockFormat& format, bool interleaved, SpillFile& file)
    : m_format(format), m_interleaved(interleaved), m_headers(file), m_data(file)
{}

void SubbandWriter::put(const void* samples, std::size_t count)
{
    const auto* bytes = static_cast<const std::uint8_t*>(samples);
    const std::size_t size = DataTypeUtils::getSize(m_format.type);
    while (count != 0) {
        if (m_subblocks.size() == m_pending)
            m_subblocks.emplace_back();
        Subblock& open = m_subblocks[m_pending];
        const std::size_t taken = std::min(count, m_format.subblockSize - open.count);
        open.samples.resize(open.count * size);
        open.samples.insert(open.samples.end(), bytes, bytes + taken * size);
        open.count += taken;
        bytes += taken * size;
        count -= taken;
        if (open.count == m_format.subblockSize)
            ++m_pending;
    }
}

void SubbandWriter::finish()
{
    if (m_pending < m_subblocks.size() && m_subblocks[m_pending].count != 0)
        ++m_pending;
    m_finished = true;
}

void SubbandWriter::commit()
{
    for (std::size_t i = 0; i < m_pending; ++i) {
        Subblock& subblock = m_subblocks[i];
        if (subblock.isZero) {
            if (++m_zeros == SubblockWriter::longestZeroRun)
                storeZeros();
        } else {
            storeZeros();
            m_largestPayload = std::max(m_largestPayload, subblock.data.size());
            m_headers.append(subblock.headers);
            (m_interleaved ? m_headers : m_data).append(subblock.data);
        }
        subblock.count = 0;
    }
    if (m_pending < m_subblocks.size())
        std::swap(m_subblocks[0], m_subblocks[m_pending]);
    m_pending = 0;
    if (m_finished)
        storeZeros();
}

void SubbandWriter::storeZeros()
{
    if (m_zeros == 0)
        return;
    Bytes header;
    SubblockWriter::putZeroRun(m_format.transform, m_zeros, header);
    m_headers.append(header);
    m_zeros = 0;
}

} // namespace Quillmoran
