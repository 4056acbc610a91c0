#include "text/LineReader.h"

#include "platform/Interrupt.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstring>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 4096;
constexpr std::size_t initialSize = std::size_t{1} << 16;

} // namespace

void LineReader::init(IO* io, const std::string& name, ProgressDelegate* delegate)
{
    m_name = name;
    m_delegate = delegate;
    m_buffer.resize(initialSize);
    m_stream.init(io, true, streamBufferSize);
}

void LineReader::seek(std::int64_t position)
{
    if (position <= 0)
        return;
    m_begin = m_end = 0;
    m_stream.seek(position - 1, Stream::SEEK_FROM_START);
    next();
}

bool LineReader::fill()
{
    if (isInterrupted() || (m_delegate && m_delegate->getCancelled()))
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
    const std::size_t kept = m_end - m_begin;
    if (m_begin != 0)
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
    m_begin = 0;
    m_end = kept;
    if (kept > m_buffer.size() / 2)
        m_buffer.resize(2 * m_buffer.size());
    const std::size_t got = m_stream.read(m_buffer.data() + kept, m_buffer.size() - kept - 1);
    m_end += got;
    return got != 0;
}

bool LineReader::next()
{
    std::size_t length = 0; // bytes without a newline
    bool ended = false;
    for (;;) {
        const char* const begin = m_buffer.data() + m_begin;
        const void* const newline = std::memchr(begin + length, '\n', m_end - m_begin - length);
        length =
            newline ? static_cast<std::size_t>(static_cast<const char*>(newline) - begin) : m_end - m_begin;
        if (newline || length > maxLength)
            break;
        if (!fill()) {
            ended = true;
            break;
        }
    }
    if (ended && length == 0)
        return false;
    ++m_number;
    if (length > maxLength)
        QM_THROW(ErrorCode::TextRead, "%sline is longer than %zu bytes", location().c_str(), maxLength);
    m_buffer[m_begin + length] = '\0';
    m_line = {m_buffer.data() + m_begin, length};
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (m_number == 1 && m_line.substr(0, byteOrderMark.size()) == byteOrderMark)
        m_line.remove_prefix(byteOrderMark.size());
    m_begin += length + (ended ? 0 : 1);
    return true;
}

std::string LineReader::location() const
{
    return (m_name.empty() ? "line " : m_name + ':') + std::to_string(m_number) + ": ";
}

std::string LineReader::location(std::size_t column) const
{
    std::string text = location();
    text.insert(text.size() - 1, std::to_string(column) + ':');
    return text;
}

} // namespace Quillmoran
