// A picture in memory: rows from top to bottom, pixels from left to right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Quillmoran {

// sRGB; an alpha of 0 is transparent, 255 opaque. Colours are not multiplied by it.
struct Color
{
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    std::uint8_t alpha = 255;

    friend bool operator==(const Color&, const Color&) = default;
};
static_assert(sizeof(Color) == 4, "libraries read pixels as four bytes");

class Image
{
public:
    Image(std::size_t width, std::size_t height, Color background)
        : m_width(width), m_height(height), m_pixels(width * height, background)
    {}

    std::size_t width() const noexcept { return m_width; }
    std::size_t height() const noexcept { return m_height; }
    std::span<Color> row(std::size_t y) noexcept { return {m_pixels.data() + y * m_width, m_width}; }
    std::span<const Color> row(std::size_t y) const noexcept
    {
        return {m_pixels.data() + y * m_width, m_width};
    }
    std::span<const Color> pixels() const noexcept { return m_pixels; }

private:
    std::size_t m_width;
    std::size_t m_height;
    std::vector<Color> m_pixels;
};

} // namespace Quillmoran
