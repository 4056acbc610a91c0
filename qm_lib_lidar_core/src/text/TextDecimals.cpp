#include "text/TextDecimals.h"

#include <cstring>

namespace Quillmoran::TextDecimals {

namespace {

constexpr char recordKey[] = "TextDecimals";

} // namespace

void add(Metadata& metadata, const char* channel, int decimals)
{
    const double value = decimals;
    metadata.add(recordKey, channel, METADATA_FLOAT64_ARRAY, &value, 1);
}

std::map<std::string, int> read(const Metadata& metadata)
{
    std::map<std::string, int> numbers;
    for (std::size_t i = 0; i < metadata.getNumRecords(); ++i) {
        const char *key = nullptr, *description = nullptr;
        MetadataDataType type = METADATA_STRING;
        const void* value = nullptr;
        std::size_t length = 0;
        metadata.get(i, key, description, type, value, length);
        if (std::strcmp(key, recordKey) != 0 || !description || type != METADATA_FLOAT64_ARRAY || length != 1)
            continue;
        double decimals = 0;
        std::memcpy(&decimals, value, sizeof decimals);
        if (decimals >= 1 && decimals <= most)
            numbers.emplace(description, static_cast<int>(decimals));
    }
    return numbers;
}

void remove(Metadata& metadata)
{
    metadata.removeAll(recordKey);
}

bool removeOthers(Metadata& metadata, const PointInfo& layout)
{
    const std::size_t before = metadata.getNumRecords();
    for (std::size_t i = before; i-- > 0;) {
        const char* const channel = metadata.getDescription(i);
        if (channel && std::strcmp(metadata.getKey(i), recordKey) == 0 && !layout.hasChannel(channel))
            metadata.remove(i);
    }
    return metadata.getNumRecords() != before;
}

} // namespace Quillmoran::TextDecimals
