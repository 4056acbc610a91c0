// What LASzip does with a LAZ file that our reader does with a .vxl file: decode it all, or the points of a
// window by way of the file's spatial index.
#pragma once

#include <cstdint>
#include <string>

namespace Quillmoran::Benchmarks {

// As in "3.5.0".
std::string getLASzipVersion();

// Decodes all points to nothing, of a LAS or LAZ file; returns how many they are.
std::int64_t decodeWithLASzip(const std::string& path);

struct Window
{
    double minX = 0;
    double maxX = 0;
    double minY = 0;
    double maxY = 0;
};

// Decodes the points of the window to nothing; an error where the file has no spatial index.
std::int64_t readWindowWithLASzip(const std::string& path, const Window& window);

// The square of this share of the cloud's area that comes nearest to holding the same share of its points.
// Its sides lie between the steps of the grid, so that a reader that takes half a step more finds the same.
Window findWindow(const std::string& path, double share);

// Of the points, without an index.
std::int64_t countInWindow(const std::string& path, const Window& window);

} // namespace Quillmoran::Benchmarks
