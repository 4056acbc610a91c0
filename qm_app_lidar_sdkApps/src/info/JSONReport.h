// The machine-readable report. Its keys are an interface, documented in docs/man/vxinfo.1.
#pragma once

#include "info/FileReport.h"

#include <string>

namespace Quillmoran {

// One JSON object. Numbers that JSON does not support are null, invalid UTF-8 is replaced.
std::string toJSON(const FileReport& report);

} // namespace Quillmoran
