// One field of a text table as a sample of its channel.
#pragma once

#include <vxunpack/ChannelInfo.h>

#include <cstddef>
#include <string>

namespace Quillmoran::FieldParse {

// Reads a field at `text`, which is neither white space nor the end, stores it as samples[index] and returns
// its end; null for a field that is refused. `end` is the NUL that ends the line.
using Parser = const char* (*)(const char* text, const char* end, void* samples, std::size_t index);

// The parser of a sample type; null for an unknown type.
//
// Lenient: integers are a sign and digits, and too large a number wraps. "12.5" is the field 12, and ".5" is
// left for the next one.
// Strict: the whole field must be a number that the type can hold. Integers may be written as decimals
// ("12.0"), and a whole number is refused where a double would round it.
Parser get(DataType type, bool strict) noexcept;

// Skips a field.
const char* skip(const char* text, const char* end, void* samples, std::size_t index);

// Whether the character is between two fields.
bool isSeparator(char c) noexcept;

// What is wrong with a field that a strict parser refused: "70000 does not fit Intensity (0 to 65535)".
std::string explain(const char* text, const char* end, const ChannelInfo& channel);

} // namespace Quillmoran::FieldParse
