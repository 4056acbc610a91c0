// Conversions between the encodings of Unicode text. They are strict: text that is cut, overlong or not a
// character (a lone surrogate, a number above 10FFFF) is InvalidArgument "invalid UTF-8 text" and so on.
#pragma once

#include <string>
#include <string_view>

namespace Quillmoran::Unicode {

std::u32string toUTF32(std::string_view utf8);
std::u32string toUTF32(std::u16string_view utf16);
std::u16string toUTF16(std::string_view utf8);
std::string toUTF8(std::u32string_view utf32);
std::string toUTF8(std::u16string_view utf16);

} // namespace Quillmoran::Unicode
