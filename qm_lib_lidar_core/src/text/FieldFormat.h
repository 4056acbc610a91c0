// Parses the names of the columns of a text table: letters, as in "xyzit", one letter per column; a list of
// channel names, "X,Y,Z,NearInfrared,Amplitude:FLOAT32"; or the header line of the table, "# X Y Z". Used by
// the text reader, the text writer and the programs.
#pragma once

#include <vxunpack/PointInfo.h>

#include <string_view>

namespace Quillmoran::FieldFormat {

// One channel per letter, without quantization. Throws InvalidArgument "'%c' is not a supported format
// token", "format string not given" for null. If a function of this file throws, its output is unchanged.
void parse(const char* format, PointInfo& out);

// The same with the channels of these names in `known`: InvalidArgument "'%s' is not in the input channel
// mapping", after the whole text was parsed.
void parse(const char* format, PointInfo& out, const PointInfo& known);

// The standard channel that a user means by a name (see ChannelNames::resolve), with its type and bits; null
// for another name.
const ChannelInfo* findStandard(std::string_view name);

// Letters, or a list of names if the text has a comma. An entry of the list is a name of a standard channel
// (see findStandard), a single letter, or NAME:TYPE for any channel and type, as in "Amplitude:FLOAT32". If
// there are channels of the extended LAS formats (ClassFlags, ScannerChannel, NearInfrared), ScanAngle is
// SINT16 as in these formats. InvalidArgument: the errors of parse(), "a name is missing in '%s'", "'%s' is
// not a standard channel; add its type, as in '%s:FLOAT64'", "'%s' is not a data type".
void parseColumns(const char* text, PointInfo& out);

// Letters, or a list of names of channels in `known`. The errors of parse() and of ChannelNames::require().
void parseColumns(const char* text, PointInfo& out, const PointInfo& known);

// A list of one or more names of channels in `known`. InvalidArgument: "a name is missing in '%s'", and the error
// of ChannelNames::require().
void parseNames(const char* text, PointInfo& out, const PointInfo& known);

// Columns from a header line "# X Y Z Intensity ...": true if it starts with "#" and names X, Y and Z among
// its blank-separated words. A channel that is not standard is FLOAT64; a repeated name is "@Skip".
bool parseHeader(std::string_view line, PointInfo& out);

// Sets quantizations of coordinates and times, as in "xy@0.01,z@0.001,t@1e-6"; ignores channels that the
// layout does not have. All errors are InvalidArgument.
void parseQuantization(const char* text, PointInfo& layout);

} // namespace Quillmoran::FieldFormat
