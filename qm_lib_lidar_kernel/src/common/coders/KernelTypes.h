// The kernel types: the sample types in which transforms and coders work.
#pragma once

#include "common/coders/SubblockFormat.h"
#include <vxunpack/Base.h>
#include <vxunpack/DataType.h>

#include <cstdint>
#include <memory>

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

// Makes the implementation of a coder for the type of a format. Throws InvalidArgument "unkown datatype" for
// a type that the coder does not support.
template <class Interface, template <class> class Implementation, template <class> class Supports>
std::unique_ptr<Interface> createCoder(const SubblockFormat& format)
{
    return visitKernelType(format.type, ErrorCode::InvalidArgument,
                           [&](auto zero) -> std::unique_ptr<Interface> {
                               using T = decltype(zero);
                               if constexpr (Supports<T>::value)
                                   return std::make_unique<Implementation<T>>(format);
                               else
                                   QM_THROW(ErrorCode::InvalidArgument, "unkown datatype");
                           });
}

} // namespace Quillmoran
