#include "pdal/PDALFormats.h"

#include "pdal/PDALModule.h"
#include "platform/LoadableModule.h"
#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

template <class Function>
Function* findInModule(const char* name)
{
    const auto function = LoadableModule::find<Function>(PDAL_MODULE, name);
    if (!function)
        QM_THROW(ErrorCode::General,
                 "this installation cannot read or write BPF files: its PDAL module is not there");
    return function;
}

} // namespace

PointReader* createPDALPointReader(const char* path)
{
    return findInModule<decltype(qmCreatePDALPointReader)>("qmCreatePDALPointReader")(path);
}

PointWriter* createPDALPointWriter(PointSource* source, const char* path)
{
    return findInModule<decltype(qmCreatePDALPointWriter)>("qmCreatePDALPointWriter")(source, path);
}

} // namespace Quillmoran
