// A file on a server, which is read by ranges of bytes. Modules implement it, so it does not throw errors of this
// library; RangeIO does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Quillmoran {

class RangeSource
{
public:
    struct Result
    {
        enum Status
        {
            Good,
            Failed,
            Changed,  // the file is not the one that open() found
            Cancelled // isInterrupted() returned true
        };
        Status status = Good;
        std::string message; // of Failed: the reason, without the name of the file
    };
    // What modules need of the program.
    struct Environment
    {
        bool (*isInterrupted)() noexcept;
        // Adds to the totals of the process.
        void (*count)(std::int64_t requests, std::int64_t bytes) noexcept;
    };
    struct Read
    {
        std::int64_t offset;
        std::span<unsigned char> into;
    };

    virtual ~RangeSource() = default;
    RangeSource(const RangeSource&) = delete;
    RangeSource& operator=(const RangeSource&) = delete;

    // Finds the size of the file, and reads its first bytes into `head`: up to the length of `head`, which is
    // shortened if the file is shorter. Called once, before read().
    virtual Result open(std::int64_t& size, std::vector<unsigned char>& head) = 0;
    // Fills all buffers. The reads are inside the file, sorted and disjoint. May be called from several
    // threads at a time.
    virtual Result read(std::span<const Read> reads) = 0;
    // Whether one request can have many ranges, so that it does not pay to read the bytes between them.
    virtual bool takesManyRanges() const noexcept = 0;

protected:
    RangeSource() = default;
};

} // namespace Quillmoran
