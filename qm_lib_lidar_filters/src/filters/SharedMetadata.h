// The metadata records that describe a set of point clouds as they describe each of its members.
#pragma once

#include <vxunpack/Metadata.h>

namespace Quillmoran {

// Takes out of `shared` what `other` does not hold with the same key and value.
void keepShared(Metadata& shared, const Metadata& other);
// Takes out the records that tell of one file's points: counts and boxes.
void removeCounts(Metadata& records);

} // namespace Quillmoran
