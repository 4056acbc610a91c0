// The layout of the bands of a file, where the file does not define it.
//
// A band of two byte ranges has its payloads in the first and its subblock headers in the second, but some
// writers swapped the two. Some old writers also stored a length per bit plane for channels that are not
// lifted. The headers show which is the case: read correctly they describe every subblock, end where their
// range ends, and their payload lengths add up to the length of the other range.
#pragma once

#include "decode/bands/SubbandSource.h"

namespace Quillmoran {

class WaveletDecoderInfo;

struct BandLayout
{
    bool swapped = false;
    // Headers are in the range that is not empty: no band of the file has two.
    bool singleRange = false;
    bool planeLengthsWithoutLifting = false;

    // Reads the headers of the first band with two ranges. If the band is damaged, the usual layout is
    // returned.
    static BandLayout detect(const WaveletDecoderInfo& info);
};

} // namespace Quillmoran
