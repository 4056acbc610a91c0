// The machine-readable report of vxdiff. Its keys are an interface, documented in docs/man/vxdiff.1.
#pragma once

#include "diff/DiffReport.h"

#include <string>

namespace Quillmoran {

// One JSON object and a line end. Infinities and NaNs are null, invalid UTF-8 is replaced.
std::string toJSON(const DiffReport& report);

} // namespace Quillmoran
