// Finds the first of many channels with a name. Asking a layout itself is a linear search, and a search for
// each channel of a layout of tens of thousands takes minutes.
#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace Quillmoran {

class PointInfo;

// Refers to the names, which must stay where they are. Const methods may be called from any thread.
class NameIndex
{
public:
    NameIndex() = default;
    // The channels of a layout; those without a name are not found.
    explicit NameIndex(const PointInfo& layout);

    // Names are added in any order, and found once finish() was called.
    void add(const char* name, std::size_t index) { m_names.emplace_back(name, index); }
    void finish();

    // The smallest index of the name; none for null.
    std::optional<std::size_t> find(const char* name) const;

private:
    std::vector<std::pair<const char*, std::size_t>> m_names; // sorted; hashes could be made to collide
};

} // namespace Quillmoran
