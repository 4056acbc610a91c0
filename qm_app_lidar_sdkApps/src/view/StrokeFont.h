// Text and lines on an image, with smooth edges. The font is a set of strokes, legible from a height of about
// ten pixels: ASCII, and the signs of units and numbers (degree, superscript two and three, micro,
// plus-minus, times, minus, en dash). Other characters are boxes. Nothing is drawn outside of the image.
#pragma once

#include "view/Image.h"

#include <cstddef>
#include <string_view>

namespace Quillmoran {

// Pixels from the beginning of a text to that of a text that continues it. `height`, in pixels, is that of a
// line, from the descenders to the ascenders, and at most 16384.
std::size_t textWidth(std::string_view utf8, double height);

// Draws a text that begins at `x` above `baseline`, the lower edge of its letters, rounded to whole
// pixels. A quarter of the height is below the baseline.
void drawText(Image& image, double x, double baseline, std::string_view utf8, double height, Color color);

// Draws a line with round ends. The centre of the first pixel of an image is (0.5, 0.5). Draws nothing if a
// coordinate is not finite.
void drawLine(Image& image, double x0, double y0, double x1, double y1, double width, Color color);

} // namespace Quillmoran
