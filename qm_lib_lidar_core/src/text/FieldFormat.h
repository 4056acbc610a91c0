// The language of field letters: each letter of a text such as "xyzit" names one column of a text table, in
// order. The text reader takes its columns from it, the text writer and the programs choose fields with it.
#pragma once

#include "model/PointInfo.h"

namespace Quillmoran::FieldFormat {

// One channel per letter, without quantization. 40007 "'%c' is not a supported format token", "format string
// not given" for null. When a function of this file throws, its output is unchanged.
void parse(const char* format, PointInfo& out);

// The same letters, each standing for the channel of that name in `known`: 40007 "'%s' is not in the input
// channel mapping". The whole text is read before names are looked up.
void parse(const char* format, PointInfo& out, const PointInfo& known);

// Sets quantizations of coordinates and times, as in "xy@0.01,z@0.001,t@1e-6"; channels that the layout lacks
// are passed over. All errors are 40007.
void parseQuantization(const char* text, PointInfo& layout);

} // namespace Quillmoran::FieldFormat
