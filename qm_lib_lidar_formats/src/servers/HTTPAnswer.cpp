#include "servers/HTTPAnswer.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <strings.h>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Takes a number of digits from the front.
bool takeNumber(std::string_view& text, std::int64_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number < 0)
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool takeText(std::string_view& text, std::string_view expected)
{
    if (text.substr(0, expected.size()) != expected)
        return false;
    text.remove_prefix(expected.size());
    return true;
}

// Takes a line without its end from the front.
bool takeLine(std::string_view& text, std::string_view& line)
{
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos)
        return false;
    line = trimmed(text.substr(0, end));
    text.remove_prefix(end + 1);
    return true;
}

// "multipart/byteranges; boundary=TEXT"; empty for any other type.
std::string_view boundaryOf(std::string_view type)
{
    constexpr std::string_view multipart = "multipart/byteranges";
    constexpr std::string_view key = "boundary=";
    if (!equalsIgnoringCase(type.substr(0, multipart.size()), multipart))
        return {};
    for (std::size_t at = type.find(';'); at != std::string_view::npos; at = type.find(';', at + 1)) {
        std::string_view field = trimmed(type.substr(at + 1, type.find(';', at + 1) - at - 1));
        if (!equalsIgnoringCase(field.substr(0, key.size()), key))
            continue;
        field.remove_prefix(key.size());
        if (field.size() >= 2 && field.front() == '"' && field.back() == '"')
            field = field.substr(1, field.size() - 2);
        return field;
    }
    return {};
}

} // namespace

void HTTPAnswer::addHeaderLine(std::string_view line)
{
    if (line.substr(0, 5) == "HTTP/") {
        *this = HTTPAnswer();
        const std::size_t space = line.find(' ');
        std::int64_t number = 0;
        std::string_view rest = space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
        if (takeNumber(rest, number) && number < 1000)
            status = static_cast<long>(number);
        return;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return;
    const std::pair<std::string_view, std::string*> fields[] = {{"content-type", &contentType},
                                                                {"content-range", &contentRange},
                                                                {"etag", &entityTag},
                                                                {"last-modified", &lastModified}};
    for (const auto& [name, value] : fields)
        if (equalsIgnoringCase(line.substr(0, colon), name))
            *value = trimmed(line.substr(colon + 1));
}

bool ContentRange::parse(std::string_view text, ContentRange& range)
{
    range = ContentRange();
    if (!equalsIgnoringCase(text.substr(0, 5), "bytes"))
        return false;
    text = trimmed(text.substr(5));
    if (!takeText(text, "*")) {
        std::int64_t last = 0;
        if (!takeNumber(text, range.first) || !takeText(text, "-") || !takeNumber(text, last) ||
            last < range.first || last == INT64_MAX)
            return false;
        range.end = last + 1;
    }
    if (!takeText(text, "/"))
        return false;
    if (text == "*")
        return true;
    return takeNumber(text, range.size) && text.empty() && range.end <= range.size;
}

bool HTTPParts::take(const HTTPAnswer& answer)
{
    const std::string_view body(reinterpret_cast<const char*>(answer.body.data()), answer.body.size());
    const std::string_view boundary = boundaryOf(answer.contentType);
    return boundary.empty() ? takePart(answer.contentRange, body) : takeMany(body, boundary);
}

bool HTTPParts::takeMany(std::string_view body, std::string_view boundary)
{
    const std::string delimiter = "--" + std::string(boundary);
    std::string_view line;
    while (takeLine(body, line)) {
        if (line.empty()) // before a delimiter
            continue;
        if (line == delimiter + "--")
            return true;
        if (line != delimiter)
            return false;
        std::string_view contentRange;
        do {
            if (!takeLine(body, line))
                return false;
            constexpr std::string_view key = "content-range:";
            if (equalsIgnoringCase(line.substr(0, key.size()), key))
                contentRange = trimmed(line.substr(key.size()));
        } while (!line.empty());
        ContentRange range;
        if (!ContentRange::parse(contentRange, range))
            return false;
        const std::uint64_t length = static_cast<std::uint64_t>(range.end - range.first);
        if (length > body.size() || !takePart(contentRange, body.substr(0, length)))
            return false;
        body.remove_prefix(static_cast<std::size_t>(length));
    }
    // The last delimiter may lack the end of its line.
    return trimmed(body) == delimiter + "--";
}

bool HTTPParts::takePart(std::string_view contentRange, std::string_view bytes)
{
    ContentRange range;
    if (!ContentRange::parse(contentRange, range) ||
        static_cast<std::uint64_t>(range.end - range.first) != bytes.size())
        return false;
    if (range.size >= 0 && range.size != m_size) {
        m_hasOtherSize = true;
        return true;
    }
    const auto isBefore = [](const RangeSource::Read* read, std::int64_t offset) {
        return read->offset + static_cast<std::int64_t>(read->into.size()) <= offset;
    };
    auto at = std::lower_bound(m_reads.begin(), m_reads.end(), range.first, isBefore);
    for (; at != m_reads.end() && (*at)->offset < range.end; ++at) {
        const RangeSource::Read& read = **at;
        std::size_t& received = m_received[static_cast<std::size_t>(at - m_reads.begin())];
        // The next byte that the read needs must be in the part, or it is left incomplete.
        const std::int64_t next = read.offset + static_cast<std::int64_t>(received);
        if (next < range.first || next >= range.end)
            continue;
        const std::size_t count =
            std::min(read.into.size() - received, static_cast<std::size_t>(range.end - next));
        std::memcpy(read.into.data() + received, bytes.data() + (next - range.first), count);
        received += count;
    }
    return true;
}

std::vector<const RangeSource::Read*> HTTPParts::missing() const
{
    std::vector<const RangeSource::Read*> reads;
    for (std::size_t i = 0; i < m_reads.size(); ++i)
        if (m_received[i] < m_reads[i]->into.size())
            reads.push_back(m_reads[i]);
    return reads;
}

} // namespace Quillmoran
