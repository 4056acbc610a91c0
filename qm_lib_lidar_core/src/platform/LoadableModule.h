// Parts of this project that stand in modules of their own and are loaded when they are first needed: they
// bring libraries that take longer to load than a small file takes to decode, or that not every machine has.
#pragma once

#include "platform/Export.h"

namespace Quillmoran::LoadableModule {

// A function of the module with this file name; null when the module is not installed, cannot be loaded or
// lacks the function. Looked for beside this library, beside the program and in the installed library folder.
// A module stays loaded. May be called from any thread.
QM_API void* find(const char* file, const char* function);

template <class Function>
Function* find(const char* file, const char* function)
{
    return reinterpret_cast<Function*>(find(file, function));
}

} // namespace Quillmoran::LoadableModule
