// A point cloud as LAS, .vxl and LAZ files with the same points, and the window of it that is read.
#pragma once

#include <cstdint>
#include <string>

namespace Quillmoran::Benchmarks {

struct Input
{
    // Of the paths: .las, .vxl and .laz are added, .lax for the LAZ file's spatial index, _spatial.vxl for
    // the points in spatial order.
    std::string stem;
    std::int64_t numPoints = 0;
    std::int64_t numInWindow = 0;
    // As both programs get it.
    std::string minX, maxX, minY, maxY;
    double vxlBytes = 0;
    double lazBytes = 0;
};

// Makes the .vxl files with vxpack, and LAZ file and index with LASzip, beside the LAS file, whose name ends
// in .las. Those in its order are compared with it, and what a window gives from each file is counted. Errors
// are thrown.
Input prepareInput(const std::string& las);

// The piece of prepareInput that must be in a process of its own, since it reads points: writes the first
// five members after the stem to a file.
void describePoints(const std::string& las, const std::string& description);

// A program that was built beside this one.
std::string programPath(const char* name);

} // namespace Quillmoran::Benchmarks
