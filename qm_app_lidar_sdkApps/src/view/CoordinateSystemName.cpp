#include "view/CoordinateSystemName.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <strings.h>
#include <vector>

namespace Quillmoran {

namespace {

// KEYWORD["text", number, KEYWORD[...], ...]
struct Node
{
    std::string_view keyword;
    std::string_view text; // the first one
    std::vector<Node> parts;
};

class Parser
{
public:
    explicit Parser(std::string_view text) : m_rest(text) {}

    Node parse(unsigned depth = 0)
    {
        Node node;
        node.keyword = takeWord();
        if (node.keyword.empty() || !take('['))
            return node;
        constexpr unsigned deepest = 32; // usual texts have seven levels
        while (depth < deepest && !m_rest.empty() && !take(']')) {
            const std::size_t before = m_rest.size();
            if (take('"')) {
                const std::string_view text = m_rest.substr(0, m_rest.find('"'));
                m_rest.remove_prefix(std::min(text.size() + 1, m_rest.size()));
                if (node.text.empty())
                    node.text = text;
            } else if (Node part = parse(depth + 1); !part.keyword.empty()) {
                node.parts.push_back(std::move(part));
            }
            take(',');
            if (m_rest.size() == before)
                m_rest.remove_prefix(1);
        }
        return node;
    }

private:
    void skipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r\n"), m_rest.size())); }
    // Both kinds of brackets are allowed.
    bool take(char wanted)
    {
        skipBlanks();
        if (m_rest.empty())
            return false;
        const char next = m_rest[0] == '(' ? '[' : m_rest[0] == ')' ? ']' : m_rest[0];
        if (next == wanted)
            m_rest.remove_prefix(1);
        return next == wanted;
    }
    std::string_view takeWord()
    {
        skipBlanks();
        const std::size_t length = std::min(
            m_rest.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_0123456789.+-"),
            m_rest.size());
        const std::string_view word = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        return word;
    }

    std::string_view m_rest;
};

bool isOneOf(std::string_view word, std::initializer_list<const char*> words)
{
    return std::any_of(words.begin(), words.end(), [&](const char* each) {
        return word.size() == std::strlen(each) && strncasecmp(word.data(), each, word.size()) == 0;
    });
}

const Node* findFirst(const Node& node, std::initializer_list<const char*> keywords)
{
    if (isOneOf(node.keyword, keywords))
        return &node;
    for (const Node& part : node.parts)
        if (const Node* found = findFirst(part, keywords))
            return found;
    return nullptr;
}

std::string abbreviated(std::string_view unit)
{
    if (isOneOf(unit, {"metre", "meter", "metres", "meters", "m"}))
        return "m";
    if (isOneOf(unit, {"degree", "degrees", "degree (supplier to define representation)"}))
        return "\u00b0";
    if (isOneOf(unit, {"foot", "feet", "ft", "international foot"}))
        return "ft";
    if (isOneOf(unit, {"us survey foot", "foot_us", "u.s. foot", "us foot", "us-ft", "foot us"}))
        return "ftUS";
    return std::string(unit);
}

// The unit of a system, or of its first axis.
std::string unitOf(const Node& system)
{
    for (const Node& part : system.parts)
        if (isOneOf(part.keyword, {"UNIT", "LENGTHUNIT", "ANGLEUNIT"}))
            return abbreviated(part.text);
    for (const Node& part : system.parts)
        if (isOneOf(part.keyword, {"AXIS"}))
            if (const Node* unit = findFirst(part, {"UNIT", "LENGTHUNIT", "ANGLEUNIT"}))
                return abbreviated(unit->text);
    return {};
}

} // namespace

CoordinateSystemName CoordinateSystemName::parse(const char* wkt)
{
    CoordinateSystemName result;
    if (!wkt)
        return result;
    const Node root = Parser(wkt).parse();
    const Node* const horizontal =
        findFirst(root, {"PROJCS", "PROJCRS", "PROJECTEDCRS", "GEOGCS", "GEOGCRS", "GEOGRAPHICCRS", "GEODCRS",
                         "GEODETICCRS", "GEOCCS", "LOCAL_CS", "ENGCRS"});
    if (!horizontal)
        return result;
    if (!isOneOf(horizontal->text, {"unnamed", "unknown"}))
        result.name = horizontal->text;
    result.unit = unitOf(*horizontal);
    result.isGeographic =
        isOneOf(horizontal->keyword, {"GEOGCS", "GEOGCRS", "GEOGRAPHICCRS", "GEODCRS", "GEODETICCRS"});
    if (const Node* const vertical = findFirst(root, {"VERT_CS", "VERTCRS", "VERTICALCRS"}))
        result.heightUnit = unitOf(*vertical);
    else if (!result.isGeographic)
        result.heightUnit = result.unit; // as GeoTIFF keys without a unit of heights mean it
    return result;
}

} // namespace Quillmoran
