// Splits an input into small numbers from its beginning and a rest, or stores it as a file.
#pragma once

#include "support/FuzzTarget.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Quillmoran::Fuzz {

// Returns zeros after the end of the input.
class InputReader
{
public:
    explicit InputReader(Input input) : m_rest(input) {}

    template <class T>
    T take()
    {
        T value{};
        const std::size_t size = std::min(sizeof value, m_rest.size());
        if (size != 0)
            std::memcpy(&value, m_rest.data(), size);
        m_rest = m_rest.subspan(size);
        return value;
    }
    std::uint32_t below(std::uint32_t bound) { return take<std::uint16_t>() % bound; }

    Input takeBytes(std::size_t count)
    {
        const Input bytes = m_rest.first(std::min(count, m_rest.size()));
        m_rest = m_rest.subspan(bytes.size());
        return bytes;
    }
    // Reads to the end of the line, and skips that. Ends at a NUL, as texts from users do.
    std::string takeLine()
    {
        const auto end = std::find(m_rest.begin(), m_rest.end(), '\n');
        std::string line(m_rest.begin(), end);
        m_rest = m_rest.subspan(std::min(line.size() + 1, m_rest.size()));
        return line.c_str();
    }
    Input rest() const { return m_rest; }

private:
    Input m_rest;
};

// Returns the path of a file with the input.
inline std::string storeInput(Input input, const char* name)
{
    static const Testing::TemporaryDirectory directory;
    const std::string path = directory / name;
    // A new file each time: some file systems write a file that replaces another to disk at once.
    std::filesystem::remove(path);
    Testing::writeFile(path, std::vector<std::uint8_t>(input.begin(), input.end()));
    return path;
}

} // namespace Quillmoran::Fuzz
