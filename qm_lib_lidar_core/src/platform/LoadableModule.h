// Loads the modules of this project when they are first needed. Modules link libraries that take longer to
// load than a small file takes to decode, or that may not be installed.
#pragma once

namespace Quillmoran::LoadableModule {

// Returns a function of the module with this file name; null if the module is not installed. Searches the
// directory of this library, that of the program, the installed library directory, and the module directories
// in the first and the last of them. Throws General "cannot load the module '%s': %s" if the module exists but
// cannot be loaded or does not have the function. A module is never unloaded. May be called from any thread.
void* find(const char* file, const char* function);

template <class Function>
Function* find(const char* file, const char* function)
{
    return reinterpret_cast<Function*>(find(file, function));
}

} // namespace Quillmoran::LoadableModule
