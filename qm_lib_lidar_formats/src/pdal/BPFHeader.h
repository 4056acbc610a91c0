// The header of a BPF file of version 3. PDAL reads and writes these files; this class reads what PDAL does
// not report (the range and the offset of every dimension, whether the file has all points) and sets the
// offsets, which PDAL's writer does not support.
//
//   offset  field (32 bits, unless a size is given)
//   0       "BPF!0003", 8 bytes
//   8       position of the points
//   12      number of dimensions, 1 byte
//   14      compression, 1 byte
//   16      number of points
//   20      kind of coordinates
//   24      zone
//   32      matrix, 4 x 4 doubles
//   176     offsets, minima, maxima: a double per dimension each; then labels of 32 bytes
//
// Numbers are little-endian. Values are stored as floats: a dimension's value is the float plus the offset;
// coordinates are then multiplied by the matrix.
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
    double min, max; // of the values, as given by the writer of the file
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

    // Throws BPFRead if the header is not of version 3 or the file ends before the last point.
    void read(const IO& io);
    // Size of all points in bytes, before compression.
    std::int64_t getPointBytes() const;
    // Calls visit(position, packedSize, size) for each block of compressed points. Throws BPFRead if the
    // blocks have too many points or end after the file.
    void forEachBlock(const IO& io,
                      const std::function<void(std::int64_t, std::int64_t, std::int64_t)>& visit) const;

    // Adds `origin` to the offset of dimensions in the file, whose values were written without it.
    struct Origin
    {
        std::string label;
        double origin;
        double scale; // of the dimension in the matrix
    };
    void addOrigins(const IO& io, const std::vector<Origin>& origins) const;
    // Changes the file's compression to none.
    static void setPlain(const IO& io);

private:
    void readDimensions(const IO& io, std::size_t count);
};

} // namespace Quillmoran
