// Creates and initializes an object in one expression.
#pragma once

#include <vxunpack/Object.h>

#include <utility>

namespace Quillmoran {

// A T that was initialized with these arguments, held as its base.
template <class T, class Base = T, class... Arguments>
Scoped<Base> make(Arguments&&... arguments)
{
    Scoped<T> object(T::create());
    object->init(std::forward<Arguments>(arguments)...);
    return Scoped<Base>(object.detach());
}

} // namespace Quillmoran
