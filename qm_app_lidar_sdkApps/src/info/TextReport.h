// The human-readable report, on standard output.
#pragma once

#include "info/FileReport.h"

namespace Quillmoran {

// Writes the summary of verbose runs, then the details. Writes nothing for a file that could not be opened.
void writeText(const FileReport& report);

} // namespace Quillmoran
