#include "model/NameIndex.h"

#include <vxunpack/PointInfo.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

NameIndex::NameIndex(const PointInfo& layout)
{
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i)
        if (const char* name = layout.getChannel(i).getName())
            add(name, i);
    finish();
}

void NameIndex::finish()
{
    std::sort(m_names.begin(), m_names.end(), [](const auto& a, const auto& b) {
        const int order = std::strcmp(a.first, b.first);
        return order != 0 ? order < 0 : a.second < b.second;
    });
}

std::optional<std::size_t> NameIndex::find(const char* name) const
{
    if (!name)
        return std::nullopt;
    const auto found =
        std::lower_bound(m_names.begin(), m_names.end(), name, [](const auto& known, const char* wanted) {
            return std::strcmp(known.first, wanted) < 0;
        });
    if (found == m_names.end() || std::strcmp(found->first, name) != 0)
        return std::nullopt;
    return found->second;
}

} // namespace Quillmoran
