// Translates the exceptions of PDAL and of the libraries it uses to Error, the only type that leaves the
// module.
#pragma once

#include <vxunpack/Base.h>
#include <vxunpack/ErrorCode.h>

namespace Quillmoran {

template <class Body>
auto translatePDALErrors(ErrorCode code, Body body)
{
    try {
        return body();
    } catch (const Error&) {
        throw;
    } catch (const std::exception& error) {
        QM_THROW(code, "%s", error.what());
    }
}

} // namespace Quillmoran
