// The kernel types: the sample types in which transforms and coders work.
#pragma once

#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>

#include <cstdint>

namespace Quillmoran {

// Calls visit(T{}) with a zero of the C++ type of a kernel type and returns its result. Any other type is
// `code` "unkown datatype".
template <class Visit>
auto visitKernelType(DataType type, ErrorCode code, Visit&& visit)
{
    switch (type) {
    case SINT16:
        return visit(std::int16_t{});
    case SINT32:
        return visit(std::int32_t{});
    case SINT64:
        return visit(std::int64_t{});
    case FLOAT32:
        return visit(float{});
    case FLOAT64:
        return visit(double{});
    default:
        QM_THROW(code, "unkown datatype");
    }
}

} // namespace Quillmoran
