// A report for people, on standard output.
#pragma once

#include "info/FileReport.h"

namespace Quillmoran {

// The summary that verbose runs print, and below it what else is known. A file that could not be opened has
// no text.
void writeText(const FileReport& report);

} // namespace Quillmoran
