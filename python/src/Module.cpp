#include "Bindings.h"

PYBIND11_MODULE(_vxl, module)
{
    using namespace vx::python;
    module.attr("version") = VX_PYTHON_VERSION;
    bindErrors(module);
    bindCloud(module);
    bindReader(module);
    bindWriter(module);
    bindRaster(module);
    bindArrow(module);
    bindIndex(module);
}
