// Makes text from files and users safe to print on a terminal or in one line.
#pragma once

#include <string>
#include <string_view>

namespace Quillmoran {

// Replaces control characters and bytes that are not valid UTF-8 by escapes such as "\n", "\t", "\r" and
// "\x1b", and C1 controls (U+0080 to U+009F) and bidirectional overrides (U+202A to U+202E, U+2066 to U+2069)
// by escapes such as "\u009b". Other text, also a backslash, is unchanged. May be called from any thread.
std::string printable(std::string_view text);

} // namespace Quillmoran
