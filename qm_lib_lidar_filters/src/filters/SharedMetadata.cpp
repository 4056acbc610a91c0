#include "filters/SharedMetadata.h"

#include <cstring>

namespace Quillmoran {

namespace {

struct Value
{
    const char* key;
    const char* description;
    MetadataDataType type;
    const void* data;
    std::size_t length; // as Metadata counts it
};

Value getRecord(const Metadata& records, std::size_t index)
{
    Value value;
    records.get(index, value.key, value.description, value.type, value.data, value.length);
    return value;
}

bool isSame(const Value& a, const Value& b)
{
    if (std::strcmp(a.key, b.key) != 0 || a.type != b.type || a.length != b.length)
        return false;
    const std::size_t bytes = a.type == METADATA_FLOAT64_ARRAY ? a.length * sizeof(double) : a.length;
    return bytes == 0 || std::memcmp(a.data, b.data, bytes) == 0;
}

bool holds(const Metadata& records, const Value& wanted)
{
    for (std::size_t i = 0; i < records.getNumRecords(); ++i)
        if (isSame(getRecord(records, i), wanted))
            return true;
    return false;
}

} // namespace

void keepShared(Metadata& shared, const Metadata& other)
{
    for (std::size_t i = shared.getNumRecords(); i-- > 0;)
        if (!holds(other, getRecord(shared, i)))
            shared.remove(i);
}

void removeCounts(Metadata& records)
{
    for (const char* key : {"PointRecordsByReturnCount", "LAS_BoundingBox", "PreCompressionPointCount"})
        records.removeAll(key);
}

} // namespace Quillmoran
