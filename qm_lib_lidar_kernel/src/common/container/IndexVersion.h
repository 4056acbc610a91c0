// The versions of the index chunk of a compressed file.
#pragma once

#include <cstdint>

namespace Quillmoran {

enum IndexVersion : std::uint8_t
{
    INDEX_IN_MEMORY = 1, // boxes as doubles, loaded completely
    INDEX_ON_DISK = 2    // a tree of boxes on a grid, read during queries
};

} // namespace Quillmoran
