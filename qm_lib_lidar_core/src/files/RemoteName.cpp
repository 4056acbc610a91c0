#include "files/RemoteName.h"

#include <cctype>
#include <strings.h>

namespace Quillmoran::RemoteName {

namespace {

bool beginsWith(std::string_view name, std::string_view prefix) noexcept
{
    return name.size() >= prefix.size() && strncasecmp(name.data(), prefix.data(), prefix.size()) == 0;
}

// Names of buckets, for which GDAL has a file system.
struct Bucket
{
    std::string_view scheme;
    std::string_view folder;
};
constexpr Bucket buckets[] = {{"s3://", "/vsis3/"}, {"gs://", "/vsigs/"}, {"az://", "/vsiaz/"}};

const Bucket* findBucket(std::string_view name) noexcept
{
    for (const Bucket& bucket : buckets)
        if (beginsWith(name, bucket.scheme))
            return &bucket;
    return nullptr;
}

// "/vsi", letters or digits, and a separator.
bool isVirtual(std::string_view name) noexcept
{
    constexpr std::string_view prefix = "/vsi";
    if (name.substr(0, prefix.size()) != prefix)
        return false;
    const std::size_t end = name.find_first_of("/?", prefix.size());
    if (end == std::string_view::npos || end == prefix.size())
        return false;
    for (const char c : name.substr(prefix.size(), end - prefix.size()))
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_')
            return false;
    return true;
}

} // namespace

bool isURL(std::string_view name) noexcept
{
    return beginsWith(name, "http://") || beginsWith(name, "https://");
}

bool isRemote(std::string_view name) noexcept
{
    return isURL(name) || findBucket(name) || isVirtual(name);
}

std::string_view withoutQuery(std::string_view name) noexcept
{
    return isURL(name) ? name.substr(0, name.find_first_of("?#")) : name;
}

std::string getVirtualPath(const std::string& name)
{
    const Bucket* const bucket = findBucket(name);
    return bucket ? std::string(bucket->folder) + name.substr(bucket->scheme.size()) : name;
}

} // namespace Quillmoran::RemoteName
