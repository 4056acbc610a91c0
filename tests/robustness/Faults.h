// Lets a chosen call to the system fail, or a chosen allocation. The program that links Faults.cpp calls its
// versions of open, pread, pwrite and so on, and its operator new: so do the libraries that it has loaded.
#pragma once

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

// Faults that are no error of the system, in place of an errno: half of the bytes are moved; the file ends.
constexpr int shortTransfer = 0;
constexpr int endOfFile = -1;

struct Fault
{
    Call call;
    long at;            // the first call is 1; 0 never happens
    int error;          // errno or one of the above
    bool lasts = false; // all later calls fail, too
};

// While one lives its fault happens, and calls are counted. Only files below the directory are concerned.
class Faults
{
public:
    Faults(const std::string& directory, const Fault& fault);
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    // Calls since the last one began.
    static long count(Call call);
    // Whether the fault came to pass.
    static bool happened();
};

// While one lives, allocations neither count nor fail.
class SparedAllocations
{
public:
    SparedAllocations();
    ~SparedAllocations();
    SparedAllocations(const SparedAllocations&) = delete;
    SparedAllocations& operator=(const SparedAllocations&) = delete;
};

} // namespace Quillmoran::Testing
