// The human-readable report of vxdiff.
#pragma once

#include "diff/DiffReport.h"

#include <string>

namespace Quillmoran {

// One line if the inputs are equal, otherwise a section for each kind of difference. With `notes` also what
// differs and does not count. Control characters of files are escaped.
std::string toText(const DiffReport& report, bool notes);

} // namespace Quillmoran
