// Errors and checked memory.
//
// Every failure is an exception of type `Error`; the library prints nothing. All functions of this file may
// be called from any thread.
#pragma once

#include <vxunpack/ErrorCode.h>
#include <vxunpack/Export.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <type_traits>

namespace Quillmoran {

// A failure: a message, the place of the throw and a code. It uses no heap memory, so that it can be thrown
// when memory is exhausted. `file` and `function` must be string literals, since only pointers are kept.
class QM_API Error : public std::exception
{
public:
    Error(const char* file, const char* function, int line, ErrorCode code) noexcept
        : Error(file, function, line, static_cast<int>(code))
    {}
    Error(const char* file, const char* function, int line, int code) noexcept;

    // Appends printf-style text to the message, which is cut after 1023 bytes.
    Error& operator()(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

    const char* what() const noexcept override { return m_message; }
    // The base name of the file; null if the path had no separator.
    const char* filename() const noexcept { return m_file; }
    const char* function() const noexcept { return m_function; }
    int line() const noexcept { return m_line; }
    // The code as a number; for an OSError the value of errno.
    int error() const noexcept { return m_error; }
    ErrorCode code() const noexcept { return static_cast<ErrorCode>(m_error); }

protected:
    static constexpr std::size_t messageCapacity = 1024;
    char m_message[messageCapacity];

private:
    const char* m_file;
    const char* m_function;
    int m_line;
    int m_error;
};

// A failure of the operating system, with the code and the message of the current errno.
class QM_API OSError : public Error
{
public:
    OSError(const char* file, const char* function, int line) noexcept;
};

// Called through the macros below. They are out of line to keep the code of checks small.
[[noreturn]] QM_API void throwError(const char* file, const char* function, int line, ErrorCode code);
[[noreturn]] QM_API void throwError(const char* file, const char* function, int line, ErrorCode code,
                                    const char* format, ...) __attribute__((format(printf, 5, 6)));
[[noreturn]] QM_API void throwOSError(const char* file, const char* function, int line, const char* path);

// QM_THROW(code, format, ...): throws an Error with the place of the call.
#define QM_THROW(...) ::Quillmoran::throwError(__FILE__, __func__, __LINE__, __VA_ARGS__)
// QM_THROW_OS(path): throws the error of errno with " path = %s" appended.
#define QM_THROW_OS(path) ::Quillmoran::throwOSError(__FILE__, __func__, __LINE__, path)

// malloc, realloc and free that throw OSError (ENOMEM) instead of returning null. XALLOC(0) is valid.
QM_API void* XALLOC(std::size_t size);
QM_API void* XREALLOC(void* block, std::size_t size);
QM_API void XDEALLOC(void* block) noexcept;
// A copy of up to `length` characters of a C string, owned by the caller, who frees it with XDEALLOC. A null
// text gives null.
QM_API char* STRDUP(const char* text, std::size_t length = SIZE_MAX);

struct Deallocate
{
    void operator()(void* block) const noexcept { XDEALLOC(block); }
};

// An owned array of trivial values.
template <class T>
using Buffer = std::unique_ptr<T[], Deallocate>;

// Memory for `count` elements of `elementSize` bytes, freed with XDEALLOC; OSError (ENOMEM) if the product
// overflows.
QM_API void* allocateArray(std::size_t count, std::size_t elementSize);

// `count` values with unspecified contents.
template <class T>
Buffer<T> makeBuffer(std::size_t count)
{
    static_assert(std::is_trivially_copyable_v<T>);
    return Buffer<T>(static_cast<T*>(allocateArray(count, sizeof(T))));
}

} // namespace Quillmoran
