// The variable length record by which a compressed file tells how its points are coded. It is looked at
// before LASzip sees it, which does not clean up behind a record that it refuses.
#pragma once

#include "las/LASHeader.h"

#include <vector>

namespace Quillmoran {

// 40602 unless the record is whole, names codings that exist and describes points of the header's record
// length.
void checkLASzipRecord(const std::vector<unsigned char>& value, const LASHeader& header);

} // namespace Quillmoran
