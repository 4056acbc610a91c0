#include "model/NameIndex.h"

#include <vxunpack/PointInfo.h>

#include <algorithm>

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
    std::sort(m_names.begin(), m_names.end());
}

std::optional<std::size_t> NameIndex::find(const char* name) const
{
    if (!name)
        return std::nullopt;
    const auto found =
        std::lower_bound(m_names.begin(), m_names.end(), std::pair(std::string_view(name), std::size_t{0}));
    return found != m_names.end() && found->first == name ? std::optional(found->second) : std::nullopt;
}

} // namespace Quillmoran
