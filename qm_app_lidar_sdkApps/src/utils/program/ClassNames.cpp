#include "utils/program/ClassNames.h"

#include <vxunpack/PointSource.h>

#include <iterator>

namespace Quillmoran::Utils {

const char* classNameOf(const PointSource& source, std::size_t code)
{
    static constexpr const char* usualNames[] = {
        "Never classified",  "Unclassified",    "Ground",         "Low vegetation",
        "Medium vegetation", "High vegetation", "Building",       "Low noise",
        "Model key-point",   "Water",           "Rail",           "Road surface",
        "Overlap",           "Wire guard",      "Wire conductor", "Transmission tower",
        "Wire connector",    "Bridge deck",     "High noise"};
    const std::size_t numNames = source.getNumClassIdNames();
    if (numNames == 0)
        return code < std::size(usualNames) ? usualNames[code] : "";
    const char* name = code < numNames ? source.getClassIdNames()[code] : nullptr;
    return name ? name : "";
}

} // namespace Quillmoran::Utils
