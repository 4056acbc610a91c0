// PDAL and what it uses throw exceptions of their own; outside of the module there is only Error.
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
