// The answer to a request for ranges of a file. Everything in it is from the server, and checked.
#pragma once

#include "remote/RangeSource.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Quillmoran {

struct HTTPAnswer
{
    // Fields of the last answer, after redirections.
    long status = 0;
    std::string contentType;
    std::string contentRange;
    std::string entityTag;
    std::string lastModified;
    std::vector<unsigned char> body;

    // Takes a line of the header, with its end. The first line of an answer begins a new one.
    void addHeaderLine(std::string_view line);
};

// "bytes FIRST-LAST/SIZE"; an unsatisfied range is "bytes */SIZE".
struct ContentRange
{
    std::int64_t first = 0;
    std::int64_t end = 0;   // after the last byte; 0 for an unsatisfied range
    std::int64_t size = -1; // of the file; -1 if the server does not say it

    static bool parse(std::string_view text, ContentRange& range);
};

// Copies the ranges of an answer with the status 206, of one part or many, to the buffers of the reads, which are
// sorted and disjoint. Returns false if the answer is malformed. Parts may be in any order, joined or longer than
// asked. `size` is that of the file: sets `hasOtherSize` if the answer names another one.
class HTTPParts
{
public:
    HTTPParts(const std::vector<const RangeSource::Read*>& reads, std::int64_t size)
        : m_reads(reads), m_received(reads.size(), 0), m_size(size)
    {}

    bool take(const HTTPAnswer& answer);
    bool hasOtherSize() const noexcept { return m_hasOtherSize; }
    // The reads whose bytes are not complete.
    std::vector<const RangeSource::Read*> missing() const;

private:
    bool takeMany(std::string_view body, std::string_view boundary);
    bool takePart(std::string_view contentRange, std::string_view bytes);

    const std::vector<const RangeSource::Read*>& m_reads;
    std::vector<std::size_t> m_received; // bytes from the beginning of each read
    std::int64_t m_size;
    bool m_hasOtherSize = false;
};

} // namespace Quillmoran
