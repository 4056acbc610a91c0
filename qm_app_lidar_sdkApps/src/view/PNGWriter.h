// Encodes pictures as PNG.
#pragma once

#include "view/Image.h"

#include <cstdint>
#include <vector>

namespace Quillmoran {

// The bytes of a file: 8 bits per sample, sRGB, with an alpha channel only if a pixel is not opaque. Rows are
// compressed on all threads; the bytes do not depend on their number. Throws General "cannot encode PNG: REASON".
std::vector<std::uint8_t> encodePNG(const Image& image);

} // namespace Quillmoran
