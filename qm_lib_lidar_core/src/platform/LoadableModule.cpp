#include "platform/LoadableModule.h"

#include <vxunpack/Base.h>

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

[[noreturn]] void throwLoadError(const char* file)
{
    const char* const reason = dlerror();
    QM_THROW(ErrorCode::General, "cannot load the module '%s': %s", file, reason ? reason : "unknown reason");
}

} // namespace

void* find(const char* file, const char* function)
{
    std::error_code ignored;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto own = libraryFolder(), installed = program / VX_LIBRARY_FOLDER;
    for (const auto& folder :
         {own, own / VX_MODULE_FOLDER, program, installed, installed / VX_MODULE_FOLDER}) {
        const std::filesystem::path path = folder / file;
        if (!std::filesystem::exists(path, ignored))
            continue;
        // Never unloaded, since its libraries keep state of the process.
        void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        void* const address = module ? dlsym(module, function) : nullptr;
        if (!address)
            throwLoadError(file);
        dlclose(module);
        return address;
    }
    return nullptr;
}

} // namespace Quillmoran::LoadableModule
