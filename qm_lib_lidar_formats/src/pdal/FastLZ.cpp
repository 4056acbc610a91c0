#include "pdal/FastLZ.h"

#include <utility>

namespace Quillmoran {

namespace {

// A block is a sequence of instructions. The upper three bits of the first byte say which:
//
//   000LLLLL                          L + 1 literal bytes follow
//   MMMDDDDD DDDDDDDD                 a match: copies M + 2 bytes from D + 1 bytes back
//   111DDDDD NNNNNNNN ... DDDDDDDD    a long match: copies 7 + N + 2 bytes
//
// In the first instruction these bits are the level; it is always literal bytes. On level 1 N has one byte.
// On level 2 N is a sum of bytes that ends with the first byte other than 255, and 16 bits are added to the
// maximum of D.
class Unpacker
{
public:
    explicit Unpacker(const std::vector<unsigned char>& packed) : m_in(packed) {}

    bool unpack(std::size_t size)
    {
        if (m_in.empty())
            return size == 0;
        const unsigned level = m_in[0] >> 5;
        if (level > 1)
            return false;
        m_isLevel2 = level == 1;
        bool fits = copyLiterals(std::size_t{take() & 31u} + 1, size);
        while (fits && m_next < m_in.size()) {
            const unsigned control = take();
            fits = control < 32 ? copyLiterals(control + 1, size) : copyMatch(control, size);
        }
        return fits && !m_isOverrun && m_out.size() == size;
    }

    std::vector<unsigned char>& output() { return m_out; }

private:
    unsigned take()
    {
        if (m_next < m_in.size())
            return m_in[m_next++];
        m_isOverrun = true;
        return 0;
    }

    bool copyLiterals(std::size_t count, std::size_t size)
    {
        if (count > m_in.size() - m_next || count > size - m_out.size())
            return false;
        const auto first = m_in.begin() + static_cast<std::ptrdiff_t>(m_next);
        m_out.insert(m_out.end(), first, first + static_cast<std::ptrdiff_t>(count));
        m_next += count;
        return true;
    }

    bool copyMatch(unsigned control, std::size_t size)
    {
        std::size_t length = control >> 5;
        if (length == 7)
            length += takeLength();
        length += 2;
        constexpr std::size_t maxDistance = 8191;
        std::size_t distance = (std::size_t{control & 31u} << 8) + take();
        if (m_isLevel2 && distance == maxDistance) {
            distance += std::size_t{take()} << 8;
            distance += take();
        }
        ++distance;
        if (m_isOverrun || distance > m_out.size() || length > size - m_out.size())
            return false;
        // A match may overlap its own output.
        for (std::size_t i = 0; i < length; ++i)
            m_out.push_back(m_out[m_out.size() - distance]);
        return true;
    }

    std::size_t takeLength()
    {
        std::size_t length = 0;
        unsigned more;
        do {
            more = take();
            length += more;
        } while (m_isLevel2 && more == 255);
        return length;
    }

    const std::vector<unsigned char>& m_in;
    std::vector<unsigned char> m_out;
    std::size_t m_next = 0; // of the input
    bool m_isLevel2 = false;
    bool m_isOverrun = false; // read after the end
};

} // namespace

std::optional<std::vector<unsigned char>> unpackFastLZ(const std::vector<unsigned char>& packed,
                                                       std::size_t size)
{
    Unpacker unpacker(packed);
    if (!unpacker.unpack(size))
        return std::nullopt;
    return std::move(unpacker.output());
}

} // namespace Quillmoran
