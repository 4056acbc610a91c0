#include "Bindings.h"

PYBIND11_MODULE(_vxl, module)
{
    using namespace vx::python;
    bindErrors(module);
    bindCloud(module);
    bindReader(module);
    bindWriter(module);
    bindRaster(module);
    bindArrow(module);
}
