// Reads the points of an uncompressed BPF file through PDAL, one at a time. PDAL does not hold all points in
// memory. Used by one thread at a time.
#pragma once

#include "pdal/BPFHeader.h"

#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

class PDALBPFInput
{
public:
    // Throws BPFRead with PDAL's message when PDAL refuses the file.
    PDALBPFInput(const char* path, const std::vector<BPFDimension>& dimensions);
    ~PDALBPFInput();
    PDALBPFInput(const PDALBPFInput&) = delete;
    PDALBPFInput& operator=(const PDALBPFInput&) = delete;

    // The values of the next point, in the order of the file's dimensions; false after the last point.
    bool next(double* values);

    // The file's coordinate system as WKT, empty when PDAL finds none.
    static std::string readCoordinateSystem(const char* path);

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_pipeline;
};

} // namespace Quillmoran
