// A metadata record with the number of decimals of a floating-point channel. Text output normally derives it
// from the quantization of the channel. Decimals that no quantization restores exactly are encoded in another
// way and would be printed with all their digits: 411.189999999999998. With this record they are printed as
// they were read, 411.190. Programs that do not know the record ignore it.
#pragma once

#include <vxunpack/Metadata.h>
#include <vxunpack/PointInfo.h>

#include <map>
#include <string>

namespace Quillmoran::TextDecimals {

inline constexpr int most = 12; // decimals

// One record per channel: the key "TextDecimals", the channel as description, the number as value.
void add(Metadata& metadata, const char* channel, int decimals);
// The numbers by channel, each 1 to `most`; records with other values are ignored.
std::map<std::string, int> read(const Metadata& metadata);
void remove(Metadata& metadata);
// Removes the records of channels that the layout does not have. Returns whether there were any.
bool removeOthers(Metadata& metadata, const PointInfo& layout);

} // namespace Quillmoran::TextDecimals
