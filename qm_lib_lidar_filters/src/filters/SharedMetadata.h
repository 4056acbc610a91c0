// The metadata records that all point clouds of a set have in common.
#pragma once

#include <vxunpack/Metadata.h>

namespace Quillmoran {

// Removes from `shared` the records that `other` does not have with the same key and value.
void keepShared(Metadata& shared, const Metadata& other);
// Removes the records about the points of one file: counts and boxes.
void removeCounts(Metadata& records);

} // namespace Quillmoran
