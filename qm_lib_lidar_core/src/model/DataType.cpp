#include <vxunpack/DataType.h>

#include <strings.h>

namespace Quillmoran::DataTypeUtils {

namespace {

struct Name
{
    DataType type;
    const char* text;
};

constexpr Name names[] = {
    {UINT8, "UINT8"},   {SINT8, "SINT8"},   {UINT16, "UINT16"}, {SINT16, "SINT16"},   {UINT32, "UINT32"},
    {SINT32, "SINT32"}, {UINT64, "UINT64"}, {SINT64, "SINT64"}, {FLOAT32, "FLOAT32"}, {FLOAT64, "FLOAT64"},
};

} // namespace

bool isKnown(DataType type) noexcept
{
    return visitDataType(type, [](auto) {});
}

const char* toString(DataType type) noexcept
{
    if (type == INVALID)
        return "INVALID";
    for (const Name& name : names)
        if (name.type == type)
            return name.text;
    return "UNKNOWN";
}

DataType toDataType(const char* text) noexcept
{
    if (text)
        for (const Name& name : names)
            if (strcasecmp(name.text, text) == 0)
                return name.type;
    return INVALID;
}

} // namespace Quillmoran::DataTypeUtils
