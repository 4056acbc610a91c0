// PDAL and what it uses throw exceptions of their own; outside of the module there is only Error.
#pragma once

#include "platform/Base.h"

namespace Quillmoran {

template <class Body>
auto translatePDALErrors(int code, Body body)
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
