#include "encode/bands/SpillStream.h"

#include "files/Spool.h"

#include <algorithm>
#include <mutex>

namespace Quillmoran {

namespace {

constexpr std::size_t bufferSize = 32 * 1024; // bytes
constexpr std::int64_t firstRange = 128 * 1024;

} // namespace

std::int64_t SpillFile::reserve(std::int64_t length)
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (!m_io)
        m_io = Spool::create();
    const std::int64_t offset = m_end;
    m_end += length;
    return offset;
}

void SpillStream::append(const std::vector<std::uint8_t>& bytes)
{
    m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
    if (m_buffer.size() >= bufferSize)
        spill();
}

void SpillStream::spill()
{
    std::size_t done = 0;
    while (done < m_buffer.size()) {
        if (m_free == 0) {
            m_free = m_ranges.empty() ? firstRange : 2 * m_ranges.back().length;
            m_ranges.push_back({m_file->reserve(m_free), m_free});
        }
        const std::int64_t count = std::min(m_free, static_cast<std::int64_t>(m_buffer.size() - done));
        const StreamWriter::Range& last = m_ranges.back();
        writeFully(m_file->io(), last.offset + last.length - m_free, m_buffer.data() + done,
                   static_cast<std::size_t>(count));
        done += static_cast<std::size_t>(count);
        m_free -= count;
        m_spilled += count;
    }
    m_buffer.clear();
}

void SpillStream::copyTo(StreamWriter& out) const
{
    if (m_spilled != 0) {
        std::vector<StreamWriter::Range> ranges = m_ranges;
        ranges.back().length -= m_free;
        if (!out.copyInParallel(&m_file->io(), ranges))
            QM_THROW(ErrorCode::TemporaryFileRead, "read error -- temporary file");
    }
    out.write(m_buffer.data(), m_buffer.size());
}

} // namespace Quillmoran
