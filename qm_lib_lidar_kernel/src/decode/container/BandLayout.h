// How the bands of one file are laid out where nothing in the file says so.
//
// A band of two stretches holds its payloads in the first bytes and its subblock headers behind them, but
// some writers swapped the two. And some old writers announced a length per bit plane also for channels that
// are not lifted. The headers themselves tell: read the right way they account for every subblock, end where
// their stretch ends and announce as many bytes as the other stretch holds.
#pragma once

#include "decode/bands/SubbandSource.h"

namespace Quillmoran {

class WaveletDecoderInfo;
class WaveletDecoderChannelInfo;

struct BandLayout
{
    bool swapped = false;
    // Headers stand in whichever stretch is not empty (no band of the file has two).
    bool singleStretch = false;
    bool planeLengthsWithoutLifting = false;

    // Walks the headers of the first band that can tell. Damaged bands tell nothing and leave the usual
    // layout.
    static BandLayout detect(const WaveletDecoderInfo& info);
};

} // namespace Quillmoran
