// A report for programs. The keys are part of the interface and described in docs/man/vxinfo.1.
#pragma once

#include "info/FileReport.h"

#include <string>

namespace Quillmoran {

// One JSON object. Numbers that JSON cannot hold are null, bytes that are not UTF-8 are replaced.
std::string toJSON(const FileReport& report);

} // namespace Quillmoran
