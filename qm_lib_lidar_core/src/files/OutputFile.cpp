#include "files/OutputFile.h"

#include "files/Spool.h"
#include <vxunpack/ProgressDelegate.h>

#include <utility>

namespace Quillmoran {

void OutputFile::Slice::reserve(std::size_t count)
{
    if (count <= capacity)
        return;
    bytes = makeBuffer<unsigned char>(count);
    capacity = count;
}

void OutputFile::init(const char* path)
{
    if (!path)
        QM_THROW(ErrorCode::InvalidArgument, "path not given");
    abort();
    m_io.reset();
    m_path = path;
}

void OutputFile::init(IO* io, const char* name)
{
    abort();
    m_path.reset();
    m_name = name;
    m_io = Scoped<IO>::retained(io);
}

void OutputFile::create()
{
    if (!m_path || m_partial)
        return;
    m_partial.emplace(m_path->c_str(), m_mode);
    m_io = Scoped<IO>::retained(m_partial->io());
}

bool OutputFile::isPipe() const
{
    if (m_partial)
        return !m_partial->canSeek();
    const auto* const file = dynamic_cast<const FileIO::Imp*>(m_io.get());
    return file && file->isSequential();
}

IO& OutputFile::open()
{
    create();
    if (!m_io)
        QM_THROW(ErrorCode::InvalidArgument, "io is NULL");
    if (m_access == SEEKABLE && isPipe())
        m_spool = Spool::create();
    m_io->open();
    m_isBegun = m_isOpen = true;
    return io();
}

void OutputFile::checkCancelled(ProgressDelegate* delegate, const char* activity) const
{
    if (!delegate)
        return;
    delegate->updateCompleted(0, activity);
    if (delegate->getCancelled())
        QM_THROW(ErrorCode::Cancelled, "%s Write operation cancelled.", m_format);
}

void OutputFile::startQueue(std::function<void(const Slice&)> write, std::size_t maxSlices)
{
    m_queue.emplace(std::move(write), maxSlices);
}

void OutputFile::finishQueue()
{
    m_queue->finish();
    m_queue.reset();
}

void OutputFile::commit()
{
    if (m_spool)
        Spool::copy(*m_spool, *m_io);
    m_isOpen = false; // also if closing fails
    m_io->close();
    if (m_partial)
        m_partial->finish();
    release();
}

void OutputFile::abort() noexcept
{
    m_queue.reset();
    try {
        if (m_isBegun)
            m_io->unlink();
        if (std::exchange(m_isOpen, false))
            m_io->close();
    } catch (...) {
        // The failure that led here is the one to report.
    }
    release();
}

void OutputFile::release() noexcept
{
    m_isBegun = false;
    if (m_path)
        m_io.reset();
    m_partial.reset();
    m_spool.reset();
}

} // namespace Quillmoran
