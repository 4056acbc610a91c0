#include "robustness/Faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

// malloc() that never fails for a caller in the program. Sanitizers replace it themselves.
extern "C" {
#ifdef VX_SANITIZED
constexpr auto* systemMalloc = std::malloc;
#else
void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
constexpr auto* systemMalloc = __libc_malloc;
#endif
}

namespace Quillmoran::Testing {

namespace {

std::atomic<bool> armed{false}, areSpared{false};
Fault chosen{Call::Open, 0, 0};
std::array<std::atomic<long>, numCalls> counts;
std::atomic<bool> hasHappened{false};
char directory[4096];                       // no std::string: operator new reads it
std::array<std::atomic<bool>, 4096> isOurs; // by descriptor

// Counts a call; true if it must fail.
bool fails(Call call)
{
    const long number = ++counts[static_cast<std::size_t>(call)];
    // A network file system may report a full disk again when the file is closed.
    const bool again =
        chosen.lasts && (call == chosen.call ? number > chosen.at
                                             : call == Call::Close && chosen.error == ENOSPC && hasHappened);
    const bool now = chosen.at != 0 && (again || (call == chosen.call && number == chosen.at));
    if (now)
        hasHappened = true;
    if (now && chosen.error > 0)
        errno = chosen.error;
    return now;
}

bool concerns(const char* path)
{
    return armed && std::strncmp(path, directory, std::strlen(directory)) == 0;
}

bool concerns(int descriptor)
{
    return armed && descriptor >= 0 && static_cast<std::size_t>(descriptor) < isOurs.size() &&
           isOurs[static_cast<std::size_t>(descriptor)];
}

int opened(int descriptor)
{
    if (descriptor >= 0 && static_cast<std::size_t>(descriptor) < isOurs.size())
        isOurs[static_cast<std::size_t>(descriptor)] = true;
    return descriptor;
}

template <class Function>
Function* systems(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The address range of a library, or of the program, in memory.
struct Module
{
    const char* name; // a part of it; empty for the program
    std::uintptr_t begin = 0, end = 0;

    bool holds(const void* caller) const
    {
        const auto address = reinterpret_cast<std::uintptr_t>(caller);
        return address >= begin && address < end;
    }
};
// LASzip destroys objects that its failed allocations have left incomplete, which ends the process.
Module laszip{"liblaszip"};
// Its XALLOC calls malloc, which must not fail for other callers: they do not expect it.
Module program{""};

int findModules(dl_phdr_info* loaded, std::size_t, void*)
{
    for (Module* module : {&laszip, &program}) {
        if (*module->name ? !std::strstr(loaded->dlpi_name, module->name) : *loaded->dlpi_name)
            continue;
        module->begin = loaded->dlpi_addr;
        for (int i = 0; i < loaded->dlpi_phnum; ++i)
            module->end = std::max<std::uintptr_t>(
                module->end, loaded->dlpi_addr + loaded->dlpi_phdr[i].p_vaddr + loaded->dlpi_phdr[i].p_memsz);
    }
    return 0;
}

void* allocate(std::size_t size, const void* caller)
{
    if (armed && !areSpared && !laszip.holds(caller) && fails(Call::Allocate))
        return nullptr;
    return systemMalloc(size != 0 ? size : 1);
}

[[maybe_unused]] bool failsForProgram(const void* caller)
{
    return armed && !areSpared && program.holds(caller) && fails(Call::Allocate);
}

void* allocateOrThrow(std::size_t size, const void* caller)
{
    void* const block = allocate(size, caller);
    if (!block)
        throw std::bad_alloc();
    return block;
}

// Reads or writes `count` bytes, unless the call fails.
template <class Function>
ssize_t move(Call call, int descriptor, std::size_t count, const Function& system)
{
    if (!concerns(descriptor) || !fails(call))
        return system(count);
    if (chosen.error == shortTransfer)
        return system((count + 1) / 2);
    return chosen.error == endOfFile ? 0 : -1;
}

} // namespace

Faults::Faults(const std::string& below, const Fault& fault)
{
    below.copy(directory, sizeof directory - 1);
    directory[below.size()] = '\0';
    chosen = fault;
    for (auto& count : counts)
        count = 0;
    hasHappened = false;
    dl_iterate_phdr(findModules, nullptr);
    armed = true;
}

Faults::~Faults()
{
    armed = false;
}

long Faults::count(Call call)
{
    return counts[static_cast<std::size_t>(call)];
}

bool Faults::happened()
{
    return hasHappened;
}

SparedAllocations::SparedAllocations()
{
    areSpared = true;
}

SparedAllocations::~SparedAllocations()
{
    areSpared = false;
}

} // namespace Quillmoran::Testing

using Quillmoran::Testing::Call;
namespace T = Quillmoran::Testing;

#pragma GCC visibility push(default)

extern "C" {

int open64(const char* path, int flags, ...)
{
    static auto* const system = T::systems<int(const char*, int, ...)>("open64");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (!T::concerns(path))
        return system(path, flags, mode);
    return T::fails(Call::Open) ? -1 : T::opened(system(path, flags, mode));
}

int mkostemp(char* path, int flags)
{
    static auto* const system = T::systems<int(char*, int)>("mkostemp");
    if (!T::concerns(path))
        return system(path, flags);
    return T::fails(Call::Open) ? -1 : T::opened(system(path, flags));
}

ssize_t pread64(int descriptor, void* buffer, std::size_t count, off64_t offset)
{
    static auto* const system = T::systems<ssize_t(int, void*, std::size_t, off64_t)>("pread64");
    return T::move(Call::Read, descriptor, count,
                   [&](std::size_t allowed) { return system(descriptor, buffer, allowed, offset); });
}

ssize_t pwrite64(int descriptor, const void* buffer, std::size_t count, off64_t offset)
{
    static auto* const system = T::systems<ssize_t(int, const void*, std::size_t, off64_t)>("pwrite64");
    return T::move(Call::Write, descriptor, count,
                   [&](std::size_t allowed) { return system(descriptor, buffer, allowed, offset); });
}

// As in the system, the file is closed even if this returns an error.
int close(int descriptor)
{
    static auto* const system = T::systems<int(int)>("close");
    const bool concerned = T::concerns(descriptor);
    if (descriptor >= 0 && static_cast<std::size_t>(descriptor) < T::isOurs.size())
        T::isOurs[static_cast<std::size_t>(descriptor)] = false;
    const int result = system(descriptor);
    return concerned && T::fails(Call::Close) ? -1 : result;
}

int fstat64(int descriptor, struct stat64* status) noexcept
{
    static auto* const system = T::systems<int(int, struct stat64*)>("fstat64");
    return T::concerns(descriptor) && T::fails(Call::Size) ? -1 : system(descriptor, status);
}

int rename(const char* from, const char* to) noexcept
{
    static auto* const system = T::systems<int(const char*, const char*)>("rename");
    return T::concerns(from) && T::fails(Call::Rename) ? -1 : system(from, to);
}

int unlink(const char* path) noexcept
{
    static auto* const system = T::systems<int(const char*)>("unlink");
    return T::concerns(path) && T::fails(Call::Unlink) ? -1 : system(path);
}

#ifndef VX_SANITIZED
void* malloc(std::size_t size) noexcept
{
    const void* const caller = __builtin_return_address(0);
    return T::failsForProgram(caller) ? nullptr : __libc_malloc(size);
}

void* realloc(void* block, std::size_t size) noexcept
{
    const void* const caller = __builtin_return_address(0);
    return T::failsForProgram(caller) ? nullptr : __libc_realloc(block, size);
}
#endif

} // extern "C"

void* operator new(std::size_t size)
{
    return T::allocateOrThrow(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size)
{
    return T::allocateOrThrow(size, __builtin_return_address(0));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return T::allocate(size, __builtin_return_address(0));
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete[](void* block) noexcept
{
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

#pragma GCC visibility pop
