#include "text/Printable.h"

#include "text/UTF8.h"

#include <cstdint>
#include <cstdio>

namespace Quillmoran {

namespace {

bool isHarmless(std::uint32_t code)
{
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isOverride = (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    return !isControl && !isOverride;
}

void appendEscape(std::string& to, std::uint32_t code, bool isByte)
{
    char escape[16];
    if (const char letter = code == '\n' ? 'n' : code == '\t' ? 't' : code == '\r' ? 'r' : '\0')
        std::snprintf(escape, sizeof escape, "\\%c", letter);
    else
        std::snprintf(escape, sizeof escape, isByte || code < 0x80 ? "\\x%02x" : "\\u%04x", code);
    to += escape;
}

} // namespace

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        if (character.size == 0)
            appendEscape(result, static_cast<unsigned char>(text[0]), true);
        else if (isHarmless(character.code))
            result.append(text.substr(0, character.size));
        else
            appendEscape(result, character.code, false);
        text.remove_prefix(character.size == 0 ? 1 : character.size);
    }
    return result;
}

} // namespace Quillmoran
