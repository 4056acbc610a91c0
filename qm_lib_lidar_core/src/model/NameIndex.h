// Finds channels by name. A layout searches linearly, and searching for each of tens of thousands of channels
// would take minutes.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace Quillmoran {

class PointInfo;

// Keeps pointers to the names. Const methods may be called from any thread.
class NameIndex
{
public:
    NameIndex() = default;
    // The channels of a layout that have a name.
    explicit NameIndex(const PointInfo& layout);

    // Adds a name, in any order; call finish() before find().
    void add(const char* name, std::size_t index) { m_names.emplace_back(name, index); }
    void finish();

    // The smallest index with the name; nothing for null.
    std::optional<std::size_t> find(const char* name) const;

private:
    // Sorted, since a file could make hashes collide.
    std::vector<std::pair<std::string_view, std::size_t>> m_names;
};

} // namespace Quillmoran
