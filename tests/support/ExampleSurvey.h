// The small survey of examples/survey.vxl: a strip of hills with trees, flown in four lines. It is encoded as
// vxpack does, but from a source in memory, since no other input format has class names.
#pragma once

#include "support/SubblockEncoder.h"

namespace Quillmoran::Testing {

// Always the same bytes.
Bytes buildExampleSurvey();

} // namespace Quillmoran::Testing
