// The small survey of examples/survey.vxl: a strip of hills with trees, flown in four lines. It is written as
// vxpack writes files, from a source in memory, since no other format that is read holds names of classes.
#pragma once

#include "support/SubblockEncoder.h"

namespace Quillmoran::Testing {

// Always the same bytes.
Bytes buildExampleSurvey();

} // namespace Quillmoran::Testing
