// The payload of a chunk that is being read. It counts the remaining bytes, so that no field is read past the
// end of the chunk. All checks of fields against their chunk are here.
#pragma once

#include "decode/container/BaseChunkReader.h"
#include "platform/CheckedMath.h"

#include <algorithm>

namespace Quillmoran {

class BaseChunkReader::Payload
{
public:
    Payload(StreamReader& stream, std::int64_t length)
        : m_stream(stream),
          m_end(saturatingAdd(stream.tell(), length)),
          m_left(static_cast<std::uint64_t>(length))
    {}

    std::uint64_t left() const noexcept { return m_left; }

    template <class T>
    [[nodiscard]] bool get_be(T& value)
    {
        return take(sizeof(T)) && m_stream.get_be(value);
    }

    // Reads a field. `code` with the message if the payload or the file ends before it.
    template <class T>
    T get(ErrorCode code, const char* message)
    {
        T value{};
        if (!get_be(value))
            QM_THROW(code, "%s", message);
        return value;
    }

    // Reads the version of a chunk. Unsupported "unsupported %s version" if it is not 1 to `newest`.
    std::uint8_t getVersion(const char* what, std::uint8_t newest, ErrorCode code, const char* message)
    {
        const auto version = get<std::uint8_t>(code, message);
        if (version < 1 || version > newest)
            QM_THROW(ErrorCode::Unsupported, "unsupported %s version", what);
        return version;
    }

    // Reads `size` bytes: a text with its NUL, which is removed. `code` "bad write -- %s data".
    std::string getText(std::uint32_t size, const char* what, ErrorCode code)
    {
        std::string text;
        if (holds(size))
            text.resize(size);
        if (text.size() != size || !read(text.data(), size))
            QM_THROW(code, "bad write -- %s data", what);
        return size == 0 ? text : std::string(text, 0, std::min<std::size_t>(text.find('\0'), size - 1));
    }

    // Whether the payload and the file contain `count` more bytes. Called before an allocation for them.
    [[nodiscard]] bool holds(std::uint64_t count) const
    {
        return count <= m_left && count <= m_stream.remaining();
    }

    [[nodiscard]] bool read(void* buffer, std::size_t count)
    {
        return take(count) && m_stream.read(buffer, count) == count;
    }

    // Counts bytes that were read from the stream directly.
    [[nodiscard]] bool take(std::uint64_t count) noexcept
    {
        if (count > m_left)
            return false;
        m_left -= count;
        return true;
    }

    void skipRest() { m_stream.seek(m_end, Stream::SEEK_FROM_START); }

private:
    StreamReader& m_stream;
    std::int64_t m_end; // position after the payload
    std::uint64_t m_left;
};

} // namespace Quillmoran
