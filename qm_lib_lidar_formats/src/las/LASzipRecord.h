// What a compressed file tells of its own coding. It is looked at before LASzip sees it, which believes what
// is said there and does not clean up behind a file that it refuses.
#pragma once

#include "las/LASHeader.h"
#include "platform/IO.h"

#include <vector>

namespace Quillmoran {

// The variable length record of the compression: 40602 unless it is whole, names codings that exist and
// describes points of the header's record length.
void checkLASzipRecord(const std::vector<unsigned char>& value, const LASHeader& header);

// The table of the chunks into which a file of this record cuts its points: 40602 when it is missing, which
// no file with points does without, or lists more chunks than the file can hold. The store is open.
void checkLASzipChunks(const IO& io, const LASHeader& header, const std::vector<unsigned char>& value);

} // namespace Quillmoran
