// The entropy coders of subblocks. To add a coder, write its SubblockReader and SubblockWriter and add a row
// to the table in Coder.cpp.
#pragma once

#include "common/coders/TransformUtils.h"

#include <cstddef>
#include <memory>
#include <span>

namespace Quillmoran {

class SubblockReader;
class SubblockWriter;
struct SubblockFormat;

struct Coder
{
    const char* name;         // human-readable
    TransformType base;       // the codes of its transforms are this plus those of LiftingScheme
    bool isFloatingPoint;     // codes floating-point samples, not integers
    std::size_t zeroRunBytes; // size of the header of a run of zero subblocks: 2 or 4
    int magnitudeBits;        // of the largest integer that it codes
    // Weight of the bytes when coders are compared for a channel: above 1 for a coder that is slower.
    double sizeWeight;
    double speedWeight; // likewise, if decoding speed is preferred
    // Both throw InvalidArgument "unkown datatype" for samples that the coder does not support.
    std::unique_ptr<SubblockReader> (*createReader)(const SubblockFormat& format);
    std::unique_ptr<SubblockWriter> (*createWriter)(const SubblockFormat& format);

    static std::span<const Coder> all();
};

} // namespace Quillmoran
