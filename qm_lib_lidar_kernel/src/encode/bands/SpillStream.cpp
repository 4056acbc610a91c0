#include "encode/bands/SpillStream.h"

#include "platform/Stream.h"

#include <algorithm>
#include <mutex>

namespace Quillmoran {

namespace {

constexpr std::size_t bufferSize = 32 * 1024; // bytes
constexpr std::int64_t firstStretch = 128 * 1024;

} // namespace

std::int64_t SpillFile::reserve(std::int64_t length)
{
    const std::lock_guard<Mutex> lock(m_mutex);
    if (!m_io) {
        Scoped<FileIO::Imp> io(FileIO::create());
        io->init(nullptr);
        FileIO::deleteFile(io->path()); // the open file stays, and nothing does when the program is killed
        m_io.reset(io.detach());
    }
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
        if (m_room == 0) {
            m_room = m_stretches.empty() ? firstStretch : 2 * m_stretches.back().length;
            m_stretches.push_back({m_file->reserve(m_room), m_room});
        }
        const std::int64_t count = std::min(m_room, static_cast<std::int64_t>(m_buffer.size() - done));
        const Stretch& last = m_stretches.back();
        writeFully(m_file->io(), last.offset + last.length - m_room, m_buffer.data() + done,
                   static_cast<std::size_t>(count));
        done += static_cast<std::size_t>(count);
        m_room -= count;
        m_spilled += count;
    }
    m_buffer.clear();
}

void SpillStream::copyTo(StreamWriter& out) const
{
    std::int64_t left = m_spilled;
    for (const Stretch& stretch : m_stretches) {
        const std::int64_t count = std::min(left, stretch.length);
        if (!out.copy(&m_file->io(), stretch.offset, count))
            QM_THROW(ErrorCode::TemporaryFileRead, "read error -- temporary file");
        left -= count;
    }
    out.write(m_buffer.data(), m_buffer.size());
}

} // namespace Quillmoran
