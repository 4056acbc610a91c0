// How users name the columns of a text table: by letters, as in "xyzit", one letter per column; by a list of
// channel names, "X,Y,Z,NearInfrared,Amplitude:FLOAT32"; or by the header line of the table, "# X Y Z". The
// text reader gets its columns from here, the text writer and the programs choose fields with it.
#pragma once

#include <vxunpack/PointInfo.h>

#include <string_view>

namespace Quillmoran::FieldFormat {

// One channel per letter, without quantization. InvalidArgument "'%c' is not a supported format token", "format string
// not given" for null. When a function of this file throws, its output is unchanged.
void parse(const char* format, PointInfo& out);

// The same letters, each standing for the channel of that name in `known`: InvalidArgument "'%s' is not in the input
// channel mapping". The whole text is read before names are looked up.
void parse(const char* format, PointInfo& out, const PointInfo& known);

// The standard channel that a user means by a name (see ChannelNames::resolve), with its type and bits; null
// for another name.
const ChannelInfo* findStandard(std::string_view name);

// Letters, or a list of names if the text has a comma. An entry of the list is a name of a standard channel
// (see findStandard), a single letter, or NAME:TYPE for any channel and type, as in "Amplitude:FLOAT32".
// Channels that LAS has in its extended formats only (ClassFlags, ScannerChannel, NearInfrared) make ScanAngle
// the wide angle of these formats, SINT16. Errors InvalidArgument: those of parse(), "a name is missing in '%s'", "'%s' is
// not a standard channel; add its type, as in '%s:FLOAT64'", "'%s' is not a data type".
void parseColumns(const char* text, PointInfo& out);

// Letters, or a list of names of channels in `known`. The errors of parse() and of ChannelNames::require().
void parseColumns(const char* text, PointInfo& out, const PointInfo& known);

// Columns from a header line "# X Y Z Intensity ...": true if it starts with "#" and names X, Y and Z among
// its blank-separated words. A channel that is not standard is FLOAT64; a name that comes again is "@Skip".
bool parseHeader(std::string_view line, PointInfo& out);

// Sets quantizations of coordinates and times, as in "xy@0.01,z@0.001,t@1e-6"; channels that the layout lacks
// are passed over. All errors are InvalidArgument.
void parseQuantization(const char* text, PointInfo& layout);

} // namespace Quillmoran::FieldFormat
