// The head and the tail of a LAS file that gives back the file which the points came from: its version, point
// format, header fields, VLRs, EVLRs and extra bytes, from the records that LASMetadata has stored.
#pragma once

#include "las/header/LASFileHead.h"

namespace Quillmoran {

// If the points are all points of that file, with all its channels, the head is that of the file, byte for
// byte, but for the changes that compressing or decompressing it needs. Otherwise all that still holds is
// kept, and counts and bounds are to be computed; records that depend on the order of the points are left out.
// Points without such records, or with those that joined files share, get the format and version that hold all
// channels. Channels that no point format has become extra bytes. Throws NotRepresentable if the requested
// version does not have the point format, or the point records are too long, and LASRead for damaged records.
LASFileHead makeRestoredHead(const PointInfo& layout, const Metadata& metadata,
                             const LASFileHead::Request& request);

} // namespace Quillmoran
