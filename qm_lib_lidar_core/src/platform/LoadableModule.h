// Parts of this project that stand in modules of their own and are loaded when they are first needed: they
// bring libraries that take longer to load than a small file takes to decode, or that not every machine has.
#pragma once

namespace Quillmoran::LoadableModule {

// A function of the module with this file name; null if the module is not installed. The module is looked for
// beside this library, beside the program and in the installed library folder. A module that is there and
// cannot be loaded, or lacks the function, is the error -1 "cannot load the module '%s': %s" with the
// system's reason. A module stays loaded. May be called from any thread.
void* find(const char* file, const char* function);

template <class Function>
Function* find(const char* file, const char* function)
{
    return reinterpret_cast<Function*>(find(file, function));
}

} // namespace Quillmoran::LoadableModule
