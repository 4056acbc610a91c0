#include "filters/SharedMetadata.h"

#include <cstring>

namespace Quillmoran {

namespace {

bool isSame(const Metadata& a, std::size_t i, const Metadata& b, std::size_t j)
{
    if (std::strcmp(a.getKey(i), b.getKey(j)) != 0 || a.getDataType(i) != b.getDataType(j) ||
        a.getValueLength(i) != b.getValueLength(j))
        return false;
    const std::size_t valueSize = a.getDataType(i) == METADATA_FLOAT64_ARRAY ? sizeof(double) : 1;
    const std::size_t bytes = a.getValueLength(i) * valueSize;
    return bytes == 0 || std::memcmp(a.getValue(i), b.getValue(j), bytes) == 0;
}

bool contains(const Metadata& records, const Metadata& other, std::size_t index)
{
    for (std::size_t i = 0; i < records.getNumRecords(); ++i)
        if (isSame(records, i, other, index))
            return true;
    return false;
}

} // namespace

void keepShared(Metadata& shared, const Metadata& other)
{
    for (std::size_t i = shared.getNumRecords(); i-- > 0;)
        if (!contains(other, shared, i))
            shared.remove(i);
}

void removeCounts(Metadata& records)
{
    for (const char* key : {"PointRecordsByReturnCount", "LAS_BoundingBox", "PreCompressionPointCount"})
        records.removeAll(key);
}

} // namespace Quillmoran
