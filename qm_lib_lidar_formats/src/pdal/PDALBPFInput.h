// Pulls the points of a plain BPF file out of PDAL one at a time. PDAL holds buffers of the file, not its
// points. Used by one thread at a time.
#pragma once

#include "pdal/BPFHeader.h"

#include <memory>
#include <string>
#include <vector>

namespace Quillmoran {

class PDALBPFInput
{
public:
    // What PDAL does not take in the file is BPFRead with PDAL's reason.
    PDALBPFInput(const char* path, const std::vector<BPFDimension>& dimensions);
    ~PDALBPFInput();
    PDALBPFInput(const PDALBPFInput&) = delete;
    PDALBPFInput& operator=(const PDALBPFInput&) = delete;

    // The values of the next point, in the order of the file's dimensions; false behind the last one.
    bool next(double* values);

    // The file's coordinate system as WKT, empty when PDAL finds none.
    static std::string readCoordinateSystem(const char* path);

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> m_pipeline;
};

} // namespace Quillmoran
