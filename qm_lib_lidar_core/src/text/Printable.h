// Text from files and users, made safe to print on a terminal or in a line of a report.
#pragma once

#include <string>
#include <string_view>

namespace Quillmoran {

// Replaces control characters and bytes that are not valid UTF-8 by escapes: "\n", "\t", "\r", "\x1b". C1
// controls (U+0080 to U+009F) and the bidirectional overrides (U+202A to U+202E, U+2066 to U+2069) become
// "\u009b". All other text, a backslash included, stays as it is. May be called from any thread.
std::string printable(std::string_view text);

} // namespace Quillmoran
