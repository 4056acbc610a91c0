// Writes columns of values as a BPF file through PDAL. PDAL's writer is made for points that are all in
// memory; given one small view after the other, and told to store point by point, it holds no more than a
// view. Used by one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

class PDALBPFOutput
{
public:
    static constexpr std::size_t viewSize = 4096; // points, the most that write() takes at once

    // The file exists and is overwritten. The first three dimensions are X, Y and Z; they are stored in units
    // of the scales. `wkt` may be null. What PDAL refuses is OutputCreate with PDAL's reason.
    PDALBPFOutput(const char* path, const std::vector<std::string>& dimensions, const double* scales,
                  const char* wkt);
    ~PDALBPFOutput();
    PDALBPFOutput(const PDALBPFOutput&) = delete;
    PDALBPFOutput& operator=(const PDALBPFOutput&) = delete;

    // Whether a reader will find the coordinate system again.
    bool keepsCoordinateSystem() const;
    // Column i holds `count` values or more of dimension i. PointWrite "Unable to write point" when PDAL
    // fails.
    void write(const std::vector<std::vector<double>>& columns, std::size_t count);
    // Completes the header. Whether all bytes reached the disk is for the caller to see.
    void finish();

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_pipeline;
};

} // namespace Quillmoran
