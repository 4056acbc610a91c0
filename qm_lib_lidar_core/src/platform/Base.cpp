#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Quillmoran {

namespace {

// Part of a path after its last separator; null for a bare name.
const char* baseName(const char* path) noexcept
{
    if (!path)
        return nullptr;
    const char* separator = std::strrchr(path, '/');
    if (!separator)
        separator = std::strrchr(path, '\\');
    return separator ? separator + 1 : nullptr;
}

[[noreturn]] void throwOutOfMemory(const char* function, int line)
{
    errno = ENOMEM;
    throw OSError("Base", function, line);
}

} // namespace

Error::Error(const char* file, const char* function, int line, int code) noexcept
    : m_message{}, m_file(baseName(file)), m_function(function), m_line(line), m_error(code)
{}

Error& Error::operator()(const char* format, ...) noexcept
{
    const std::size_t used = std::strlen(m_message);
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(m_message + used, messageCapacity - used, format, arguments);
    va_end(arguments);
    return *this;
}

OSError::OSError(const char* file, const char* function, int line) noexcept
    : Error(file, function, line, errno)
{
    std::snprintf(m_message, messageCapacity, "%s", std::strerror(error()));
}

void throwError(const char* file, const char* function, int line, ErrorCode code)
{
    throw Error(file, function, line, code);
}

void throwError(const char* file, const char* function, int line, ErrorCode code, const char* format, ...)
{
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Error error(file, function, line, code);
    error("%s", text);
    throw Error(error);
}

void throwOSError(const char* file, const char* function, int line, const char* path)
{
    OSError error(file, function, line);
    error(" path = %s", path ? path : "");
    throw Error(error);
}

void* XALLOC(std::size_t size)
{
    // malloc(0) may return null, which is no failure.
    void* block = std::malloc(std::max<std::size_t>(size, 1));
    if (!block)
        throwOutOfMemory("XALLOC", __LINE__);
    return block;
}

void* XREALLOC(void* block, std::size_t size)
{
    void* moved = std::realloc(block, std::max<std::size_t>(size, 1));
    if (!moved)
        throwOutOfMemory("XREALLOC", __LINE__);
    return moved;
}

void XDEALLOC(void* block) noexcept
{
    std::free(block);
}

char* STRDUP(const char* text, std::size_t length)
{
    if (!text)
        return nullptr;
    const std::size_t copied = strnlen(text, length);
    auto* copy = static_cast<char*>(XALLOC(copied + 1));
    std::memcpy(copy, text, copied);
    copy[copied] = '\0';
    return copy;
}

void* allocateArray(std::size_t count, std::size_t elementSize)
{
    if (count > PTRDIFF_MAX / elementSize)
        throwOutOfMemory("allocateArray", __LINE__);
    return XALLOC(count * elementSize);
}

} // namespace Quillmoran
