// What a compressed file tells of its own coding. It is looked at before LASzip sees it, which believes what
// is said there and does not clean up behind a file that it refuses.
#pragma once

#include "las/LASHeader.h"

#include <cstddef>
#include <vector>

namespace Quillmoran {

struct LASzipCoding
{
    bool chunked = false;      // the points come in chunks, each coded on its own
    std::size_t numLayers = 0; // of a chunk that keeps the fields apart; 0 when chunks do not
};

// The variable length record of the compression: LASRead unless it is whole, names codings that exist and
// describes points of the header's format and record length.
LASzipCoding readLASzipRecord(const std::vector<unsigned char>& value, const LASHeader& header);

// What LASzip is to see in place of the header and the records in front of the points: the header, and the
// value of this one record. It frees the others even where it could not read them, and it refuses a version
// that is unset.
std::vector<unsigned char> makeLASzipHead(LASHeader header, const std::vector<unsigned char>& value);

} // namespace Quillmoran
