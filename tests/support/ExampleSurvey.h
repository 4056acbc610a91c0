// The small survey of examples/survey.vxl: a strip of hills with trees, flown in four lines.
#pragma once

#include "support/VX7FileBuilder.h"

namespace Quillmoran::Testing {

// Always the same bytes.
Bytes buildExampleSurvey();

} // namespace Quillmoran::Testing
