// Parses the fields of a text table.
#pragma once

#include <vxunpack/ChannelInfo.h>

#include <cstddef>
#include <string>

namespace Quillmoran::FieldParse {

// Parses the field at `text`, which must not be white space or the end, writes it to samples[index] and
// returns its end; null if the field is rejected. `end` is the NUL at the end of the line.
using Parser = const char* (*)(const char* text, const char* end, void* samples, std::size_t index);

// The parser of a sample type; null for an unknown type.
//
// Lenient: an integer is a sign and digits, and wraps if it is too large. "12.5" is the field 12 followed by
// the field ".5". Strict: the whole field must be a number in the range of the type. Integers may have
// decimals that are 0 ("12.0"), and an integer that a double would round is rejected.
Parser get(DataType type, bool strict) noexcept;

// Skips a field.
const char* skip(const char* text, const char* end, void* samples, std::size_t index);

// Whether the character is between two fields.
bool isSeparator(char c) noexcept;

// Why a strict parser rejected a field: "70000 does not fit Intensity (0 to 65535)".
std::string explain(const char* text, const char* end, const ChannelInfo& channel);

} // namespace Quillmoran::FieldParse
