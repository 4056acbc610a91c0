// Writes a raster as a cloud-optimized GeoTIFF: blocks of 512 x 512 cells, compressed, with overviews.
// Windows are written in any order to a temporary directory beside the output; commit() makes the output of
// them, which is complete or absent. GDAL is loaded by the first writer.
#pragma once

#include "geotiff/GeoTIFFModule.h"

#include <cstddef>
#include <memory>
#include <string>

namespace Quillmoran {

class ProgressDelegate;

class GeoTIFFWriter
{
public:
    static constexpr std::size_t blockSize = 512; // windows of multiples of it are written fastest

    // Throws General if the module for GDAL is not installed, OutputCreate if the file cannot be created, and
    // the errors of OutputFile. The delegate, which may be null, is warned of a coordinate system that the
    // file cannot have.
    GeoTIFFWriter(const std::string& path, const GeoTIFFLayout& layout, ProgressDelegate* delegate);
    // Removes what was written, unless commit() was called.
    ~GeoTIFFWriter();
    GeoTIFFWriter(const GeoTIFFWriter&) = delete;
    GeoTIFFWriter& operator=(const GeoTIFFWriter&) = delete;

    // A window of a band, row by row. Throws Write "cannot write '%s': REASON", and NotRepresentable for a
    // count of more than 32 bits.
    void write(std::size_t band, std::size_t column, std::size_t row, std::size_t columns, std::size_t rows,
               const double* values);
    // The last call. Throws Write, Cancelled if the delegate asks to stop, and the errors of OutputFile.
    void commit(unsigned numThreads);

private:
    struct Private;
    std::unique_ptr<Private> m_private;
};

} // namespace Quillmoran
