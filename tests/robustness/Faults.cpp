#include "robustness/Faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
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
extern const char __executable_start, etext; // of the program
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

std::atomic<bool> armed{false};
Fault chosen{Call::Open, 0, 0};
char directory[4096]; // no std::string: operator new reads it

// Counts a call; true if it must fail.
bool fails(Call call)
{
    const long number = ++Faults::counts[static_cast<std::size_t>(call)];
    // A network file system may report a full disk again when the file is closed.
    const bool again = chosen.lasts && (call == chosen.call ? number > chosen.at
                                                            : call == Call::Close && chosen.error == ENOSPC &&
                                                                  Faults::happened);
    const bool now = chosen.at != 0 && (again || (call == chosen.call && number == chosen.at));
    if (now)
        Faults::happened = true;
    if (now && chosen.error > 0)
        errno = chosen.error;
    return now;
}

bool concerns(const char* path)
{
    return armed && std::strncmp(path, directory, std::strlen(directory)) == 0;
}

// Whether a descriptor is of a file in the directory. The last entry is for errors.
std::atomic<bool>& isOurs(int descriptor)
{
    static std::array<std::atomic<bool>, 4096> entries;
    return entries[std::min(static_cast<std::size_t>(descriptor), entries.size() - 1)];
}

bool concerns(int descriptor)
{
    return armed && isOurs(descriptor);
}

int opened(int descriptor)
{
    isOurs(descriptor) = descriptor >= 0;
    return descriptor;
}

template <class Function>
Function* systems(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The addresses of LASzip, which destroys objects that its failed allocations have left incomplete.
const char *laszipBegin = nullptr, *laszipEnd = nullptr;

int findLASzip(dl_phdr_info* loaded, std::size_t, void*)
{
    if (!std::strstr(loaded->dlpi_name, "liblaszip"))
        return 0;
    laszipBegin = reinterpret_cast<const char*>(loaded->dlpi_addr);
    for (int i = 0; i < loaded->dlpi_phnum; ++i)
        laszipEnd =
            std::max(laszipEnd, laszipBegin + loaded->dlpi_phdr[i].p_vaddr + loaded->dlpi_phdr[i].p_memsz);
    return 1;
}

void* allocate(std::size_t size, const void* caller)
{
    if (armed && !Faults::sparesAllocations && !(caller >= laszipBegin && caller < laszipEnd) &&
        fails(Call::Allocate))
        return nullptr;
    return systemMalloc(size != 0 ? size : 1);
}

// The program's XALLOC calls malloc, which must not fail for others: they do not expect it.
[[maybe_unused]] bool failsForProgram(const void* caller)
{
    return armed && !Faults::sparesAllocations && caller >= &__executable_start && caller < &etext &&
           fails(Call::Allocate);
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
    Faults::happened = false;
    dl_iterate_phdr(findLASzip, nullptr);
    armed = true;
}

Faults::~Faults()
{
    armed = false;
}

} // namespace Quillmoran::Testing

using Quillmoran::Testing::Call;
namespace T = Quillmoran::Testing;

#pragma GCC visibility push(default)

extern "C" {

int open64(const char* path, int flags, ...)
{
    static auto* const system = T::systems<decltype(open64)>("open64");
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
    static auto* const system = T::systems<decltype(mkostemp)>("mkostemp");
    if (!T::concerns(path))
        return system(path, flags);
    return T::fails(Call::Open) ? -1 : T::opened(system(path, flags));
}

ssize_t pread64(int descriptor, void* buffer, std::size_t count, off64_t offset)
{
    static auto* const system = T::systems<decltype(pread64)>("pread64");
    return T::move(Call::Read, descriptor, count,
                   [&](std::size_t allowed) { return system(descriptor, buffer, allowed, offset); });
}

ssize_t pwrite64(int descriptor, const void* buffer, std::size_t count, off64_t offset)
{
    static auto* const system = T::systems<decltype(pwrite64)>("pwrite64");
    return T::move(Call::Write, descriptor, count,
                   [&](std::size_t allowed) { return system(descriptor, buffer, allowed, offset); });
}

// As in the system, the file is closed even if this returns an error.
int close(int descriptor)
{
    static auto* const system = T::systems<decltype(close)>("close");
    const bool concerned = T::concerns(descriptor);
    T::isOurs(descriptor) = false;
    const int result = system(descriptor);
    return concerned && T::fails(Call::Close) ? -1 : result;
}

int fstat64(int descriptor, struct stat64* status) noexcept
{
    static auto* const system = T::systems<decltype(fstat64)>("fstat64");
    return T::concerns(descriptor) && T::fails(Call::Size) ? -1 : system(descriptor, status);
}

int rename(const char* from, const char* to) noexcept
{
    static auto* const system = T::systems<decltype(rename)>("rename");
    return T::concerns(from) && T::fails(Call::Rename) ? -1 : system(from, to);
}

int unlink(const char* path) noexcept
{
    static auto* const system = T::systems<decltype(unlink)>("unlink");
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
