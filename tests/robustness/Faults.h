// Makes a chosen system call or allocation fail. A program that links Faults.cpp, and the libraries that it
// loads, call its versions of open, pread, pwrite and so on, and its operator new.
#pragma once

#include <atomic>
#include <string>

namespace Quillmoran::Testing {

enum class Call
{
    Open, // of a named or a temporary file
    Read,
    Write,
    Close,
    Size,
    Rename,
    Unlink,
    Allocate
};
constexpr int numCalls = 8;

// Faults other than system errors, instead of an errno: half of the bytes are moved; the file ends.
constexpr int shortTransfer = 0;
constexpr int endOfFile = -1;

struct Fault
{
    Call call;
    long at;            // the first call is 1; 0 never happens
    int error;          // errno or one of the above
    bool lasts = false; // all later calls also fail
};

// During its lifetime the fault happens and calls are counted, for files below the directory only.
class Faults
{
public:
    Faults(const std::string& directory, const Fault& fault);
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    // Calls since the construction of the last one, and whether its fault happened.
    static inline std::atomic<long> counts[numCalls];
    static inline std::atomic<bool> happened{false};
    // While it is true, allocations are not counted and do not fail.
    static inline std::atomic<bool> sparesAllocations{false};
};

} // namespace Quillmoran::Testing
