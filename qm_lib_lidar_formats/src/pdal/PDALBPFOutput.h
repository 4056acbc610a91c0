// Writes columns of values to a BPF file through PDAL. PDAL's writer usually gets all points in one view.
// Here it gets many small views and writes point by point, so that memory holds one view. Used by one thread
// at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

class PDALBPFOutput
{
public:
    static constexpr std::size_t viewSize = 4096; // maximum number of points for write()

    // Overwrites an existing file. The first three dimensions are X, Y and Z; they are stored in units of the
    // scales. `wkt` may be null. Throws OutputCreate with PDAL's message when PDAL fails.
    PDALBPFOutput(const char* path, const std::vector<std::string>& dimensions, const double* scales,
                  const char* wkt);
    ~PDALBPFOutput();
    PDALBPFOutput(const PDALBPFOutput&) = delete;
    PDALBPFOutput& operator=(const PDALBPFOutput&) = delete;

    // Whether the file has the coordinate system.
    bool keepsCoordinateSystem() const;
    // Column i has at least `count` values of dimension i. Throws PointWrite "Unable to write point" when
    // PDAL fails.
    void write(const std::vector<std::vector<double>>& columns, std::size_t count);
    // Completes the header. The caller checks whether the file is complete.
    void finish();

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_pipeline;
};

} // namespace Quillmoran
