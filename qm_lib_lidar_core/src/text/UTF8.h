// Reads the characters of text in UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Quillmoran {

struct Character
{
    std::uint32_t code = 0;
    std::size_t size = 0; // bytes; 0: not valid UTF-8
};

// The first character of a text that is not empty. May be called from any thread.
Character firstCharacter(std::string_view text);

} // namespace Quillmoran
