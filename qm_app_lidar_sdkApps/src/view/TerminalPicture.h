// Pictures on a terminal: what it can show, and the bytes that show an image.
#pragma once

#include "view/Image.h"

#include <cstddef>
#include <string>

namespace Quillmoran {

enum class TerminalGraphics
{
    Kitty,  // pixels, 32 bits each
    Sixel,  // pixels of at most 256 colours
    Blocks, // two pixels per character, on every terminal with UTF-8
};

// What the terminal can show, by the environment and, at most half a second long, by its own answer. Blocks
// if the descriptor is not a terminal of the foreground. What was typed before the answer is lost. Call it
// before other threads use the terminal.
TerminalGraphics detectTerminalGraphics(int descriptor);

// What to write to the terminal; empty for an image without pixels. Kitty shows the image `columns` wide,
// Blocks at most so, with the colours that the environment (COLORTERM) promises. Sixel shows it pixel by
// pixel; there, pixels of an alpha below 128 are transparent and others opaque, as in Blocks.
std::string encodeForTerminal(const Image& image, TerminalGraphics graphics, std::size_t columns);

} // namespace Quillmoran
