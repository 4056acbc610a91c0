// The answer of an HTTP server to a request for some ranges: the lines of its header, an empty line, the body.
#include "servers/HTTPAnswer.h"
#include "support/FuzzTarget.h"

namespace Quillmoran::Fuzz {

std::uint64_t runHTTP(Input input)
{
    constexpr std::int64_t fileSize = 4096;
    InputReader reader(input);
    HTTPAnswer answer;
    for (std::string line = reader.takeLine(); !line.empty() && line != "\r"; line = reader.takeLine())
        answer.addHeaderLine(line);
    const Input body = reader.rest();
    answer.body.assign(body.begin(), body.end());
    // The bytes of the buffers are those of the file, and change only if a part is taken.
    std::vector<unsigned char> bytes(300, 0xA5);
    const RangeSource::Read reads[] = {{0, std::span(bytes).first(100)},
                                       {100, std::span(bytes).subspan(100, 50)},
                                       {1000, std::span(bytes).last(150)}};
    std::vector<const RangeSource::Read*> wanted;
    for (const RangeSource::Read& read : reads)
        wanted.push_back(&read);
    HTTPParts parts(wanted, fileSize);
    const bool isGood = parts.take(answer);
    const bool isUntouched = std::count(bytes.begin(), bytes.end(), 0xA5) == 300;
    require(isGood || parts.hasOtherSize() || !body.empty() || isUntouched, "bytes from nowhere");
    return 0;
}

} // namespace Quillmoran::Fuzz
