// What the codes of classes mean.
#pragma once

#include <cstddef>

namespace Quillmoran {

class PointSource;

namespace Utils {

// The name in the source, or else, if it has no names at all, the one that the code has in LAS files. Empty for other
// codes. Valid as long as the source.
const char* classNameOf(const PointSource& source, std::size_t code);

} // namespace Utils

} // namespace Quillmoran
