// How a text table is read.
#pragma once

#include <vxunpack/PointInfo.h>

#include <cstddef>

namespace Quillmoran {

class ProgressDelegate;

struct TextOptions
{
    PointInfo layout;          // the columns; those named "@Skip" are dropped
    std::size_t skipLines = 0; // before the table
    // Reads the whole file once, when it is opened, for its count and bounds.
    bool scanNow = false;
    // Refuses what the default reading accepts: a value outside the range of its channel, digits after the
    // point in an integer column, text after a number, fields after the last column, a NUL in a line.
    bool strict = false;
    // Asked during the pass for count and bounds whether to stop it: Cancelled. May be null; must outlive the
    // reader.
    ProgressDelegate* cancellation = nullptr;
};

} // namespace Quillmoran
