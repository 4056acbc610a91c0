// Metadata records that hold for all points of one file only, in their order. Whatever changes the points removes
// them.
#pragma once

#include <string_view>

namespace Quillmoran {

class Metadata;

namespace MetadataKeys {

inline constexpr char boundingBox[] = "LAS_BoundingBox";
inline constexpr char countsByReturn[] = "PointRecordsByReturnCount";
// The order in which the points were sorted, which need not be that of the file they come from.
inline constexpr char pointOrder[] = "PointOrder";

// For another set of points, or other coordinates.
void removeCounts(Metadata& records);
// Whether the record is an index of the file's points by their positions.
bool isPointIndex(std::string_view key) noexcept;
// For another order of the points.
void removePointIndexes(Metadata& records);

} // namespace MetadataKeys

} // namespace Quillmoran
