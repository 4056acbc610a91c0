// The header of a BPF file of version 3. PDAL reads and writes these files; this small view of them tells
// what PDAL keeps to itself (the range and the offset of every dimension, whether all points are there) and
// sets the offsets that PDAL's writer does not know.
//
//   0 "BPF!0003" | 8 bytes before the points | 12 number of dimensions (1 byte) | 14 compression (1 byte) |
//   16 number of points | 20 kind of coordinates | 24 zone | 32 matrix of 4 x 4 doubles |
//   176 offsets | minima | maxima (a double per dimension each) | labels (32 bytes each)
//
// Numbers are little-endian, of 32 bits where no other size stands. Values are stored as floats: a
// dimension's value is the float plus the offset, and coordinates then go through the matrix.
#pragma once

#include <vxunpack/IO.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Quillmoran {

enum class BPFCompression : std::uint8_t
{
    None = 0,
    FastLZ = 2,
    Deflate = 3
};

struct BPFDimension
{
    std::string label;
    double offset;   // 0: every value is a float
    double min, max; // of the values, as the writer of the file says
};

struct BPFHeader
{
    static constexpr std::size_t maxDimensions = 255;
    static constexpr std::size_t maxLabelLength = 31; // and a NUL
    static constexpr std::int64_t maxPoints = INT32_MAX;

    std::int32_t headerSize = 0; // bytes before the points
    BPFCompression compression = BPFCompression::None;
    std::int32_t numPoints = 0;
    bool isUTM = false;
    std::vector<BPFDimension> dimensions;

    // BPFRead for what is no header of version 3, and for a file that ends before its points do.
    void read(const IO& io);
    // Bytes of all points as they are before they are compressed.
    std::int64_t getPointBytes() const;
    // Compressed points stand in blocks; calls visit(position, packedSize, size) for each. BPFRead when the
    // blocks do not hold the points or do not fit the file.
    void forEachBlock(const IO& io,
                      const std::function<void(std::int64_t, std::int64_t, std::int64_t)>& visit) const;

    // Says in the file that the values of dimensions lie `origin` above those that were written.
    struct Origin
    {
        std::string label;
        double origin;
        double scale; // of the dimension in the matrix
    };
    void addOrigins(const IO& io, const std::vector<Origin>& origins) const;
    // Says in the file that its points are not compressed.
    static void setPlain(const IO& io);

private:
    void readDimensions(const IO& io, std::size_t count);
};

} // namespace Quillmoran
