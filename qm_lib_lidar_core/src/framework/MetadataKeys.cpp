#include "framework/MetadataKeys.h"

#include <vxunpack/Metadata.h>

#include <algorithm>
#include <iterator>

namespace Quillmoran::MetadataKeys {

namespace {

// VLRs of LAS files: info and hierarchy of a cloud-optimised file, and the quadtree of a LAX index.
constexpr std::string_view pointIndexes[] = {"copc::1", "copc::1000", "LAStools::30"};

} // namespace

void removeCounts(Metadata& records)
{
    for (const char* key : {boundingBox, countsByReturn})
        records.removeAll(key);
}

bool isPointIndex(std::string_view key) noexcept
{
    return std::find(std::begin(pointIndexes), std::end(pointIndexes), key) != std::end(pointIndexes);
}

void removePointIndexes(Metadata& records)
{
    for (const std::string_view key : pointIndexes)
        records.removeAll(key.data());
}

} // namespace Quillmoran::MetadataKeys
