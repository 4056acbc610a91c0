#include "platform/LoadableModule.h"

#include <dlfcn.h>
#include <filesystem>
#include <string>

namespace Quillmoran::LoadableModule {

namespace {

std::filesystem::path libraryFolder()
{
    Dl_info self;
    const auto address =
        reinterpret_cast<const void*>(static_cast<void* (*)(const char*, const char*)>(find));
    return dladdr(address, &self) != 0 ? std::filesystem::path(self.dli_fname).parent_path()
                                       : std::filesystem::path();
}

} // namespace

void* find(const char* file, const char* function)
{
    std::error_code ignored;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const auto& folder : {libraryFolder(), program, program / VX_MODULE_FOLDER}) {
        // Never unloaded: what it brings keeps state of the process.
        if (void* module = dlopen((folder / file).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
            void* const address = dlsym(module, function);
            dlclose(module);
            return address;
        }
    }
    return nullptr;
}

} // namespace Quillmoran::LoadableModule
